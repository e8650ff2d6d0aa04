#!/bin/sh
# Runs the test programs of the working folder under Wine, each to its end. Started by tests/windows/run; in the 32-bit
# system it is the guest's own shell that runs it.
failed=
for program in *_tests.exe; do
  echo "== $program"
  wine "$program" --gtest_brief=1 || failed="$failed $program"
done
[ -z "$failed" ] && exit 0
echo "failed:$failed"
exit 1
