#!/bin/sh
# Runs the test programs of the working folder under Wine, each to its end. Started by tests/windows/run; in the 32-bit
# system it is the guest's own shell that runs it. A Windows process takes its time zone from the system, so the tests that ask for
# another one than UTC run again in that zone.
failed=

in_zone() {  # the tests' name of it, the system's name, program, options
  OSTREL_TEST_ZONE=$1
  TZ=$2
  export OSTREL_TEST_ZONE TZ
  shift 2
  echo "== $* ($OSTREL_TEST_ZONE)"
  wine "$@" --gtest_brief=1 || failed="$failed $1($OSTREL_TEST_ZONE)"
}

in_berlin() { in_zone Europe/Berlin CET-1CEST,M3.5.0,M10.5.0/3 "$@"; }

for program in *_tests.exe; do in_zone UTC UTC "$program"; done
in_berlin platform_tests.exe --gtest_filter='LocalTime*'
in_berlin acquisition_tests.exe --gtest_filter='*.TheComputersChangeOfTimeIsNoDrift:*.ClockCommandsCarryTheComputersZone:ClockDrill.*'
in_berlin history_tests.exe --gtest_filter='CalendarTime.*:HistoryListing.*:ArchiveEnergy.*:ProfileWalk.*'
in_zone MSK-3 MSK-3 diagnostics_tests.exe --gtest_filter='LogFile.StampsItsLines'

[ -z "$failed" ] && exit 0
echo "failed:$failed"
exit 1
