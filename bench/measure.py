#!/usr/bin/env python3
"""Measures the programs as they are shipped, side by side with a bare loop and a peer, and writes docs/performance.md.

usage: bench/measure.py BUILD_FOLDER [ROW...]     a part of a row's name is enough; with rows named, no page is written

Every row is a ratio or a count, so that a slow machine and a fast one agree; each has a bound, and the command ends with 1 when
one is not met.
"""
import contextlib
import os
import pathlib
import platform
import re
import signal
import subprocess
import sys
import tempfile
import time

METER = "1:1:at=2026-11-20T10:30:00:channel_timeout_s=1000000"
BITS = 10  # of a byte without parity
QUIET = 2  # characters that the protocol keeps behind an answer
# What the plug-in's contract makes a pass of one meter wait for, beside the line: 10 ms before it, 5 before the meter, 200 before its
# clock, 10 after it.
PAUSES_S = 0.225


class Bench:
    def __init__(self, build, folder):
        self.bin = build / "bin"
        self.folder = folder
        self.rows = []

    def row(self, what, value, bound, passed, shown="{:.2f}"):
        self.rows.append((what, shown.format(value), bound, passed))
        print(f"{'ok  ' if passed else 'FAIL'}  {what}: {shown.format(value)} ({bound})", flush=True)

    # --- programs

    @contextlib.contextmanager
    def meters(self, lines, meters, *options):
        """A simulator on pseudo-terminals; gives their paths."""
        paths = [f"{self.folder}/line{number}" for number in range(lines)]
        arguments = [argument for path in paths for argument in ("--line", f"pty:{path}")]
        child = subprocess.Popen([self.bin / "ostrel-meter", *arguments, *options, *meters], stdout=subprocess.PIPE, text=True)
        try:
            for _ in paths:
                child.stdout.readline()
            yield paths
        finally:
            child.send_signal(signal.SIGTERM)
            child.wait()
            child.stdout.close()

    def config(self, devices, meters=1, baud=9600, head=""):
        text = [f'clock_correction_days = 0\nlog = {{ file = "{self.folder}/log.txt" }}\n{head}']
        for number, device in enumerate(devices):
            text.append(f'[[channel]]\nport = "COM{number + 1}"\ndevice = "{device}"\nbaud = {baud}\npoll_period_s = 0\ntimeout_ms = 2000')
            for meter in range(meters):
                text.append(f'[[channel.meter]]\nname = "m{number}-{meter}"\naddress = {meter + 1}\ntype = 1')
        path = self.folder / "config.toml"
        path.write_text("\n".join(text) + "\n")
        return path

    def run_command(self, config, passes):
        return [str(self.bin / "ostrel-host"), "run", "--config", str(config), "--json", "--passes", str(passes)]

    def poll(self, config, passes, limit_s=300):
        """Seconds at which each pass ended, from the start, and what the process used."""
        ends = []
        begun = time.monotonic()
        child = subprocess.Popen(self.run_command(config, passes), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        os.set_blocking(child.stdout.fileno(), True)
        alarm = time.monotonic() + limit_s
        for line in child.stdout:
            if line.startswith('{"event":"pass"'):
                ends.append(time.monotonic() - begun)
            if time.monotonic() > alarm:
                child.kill()
        child.stdout.close()
        _, status, used = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        return ends, used

    def frames(self, device):
        """Requests and answers of one steady pass, as the trace has them."""
        def traced(passes):
            trace = self.folder / "trace.log"
            trace.unlink(missing_ok=True)
            head = f'trace = {{ file = "{trace}", settings = "DBG_COMMON=1 FS=64" }}\n'
            self.poll(self.config([device], head=head), passes)
            found = re.findall(r"(Write|Read)<\d+>((?: [0-9A-F]{2})*)", trace.read_text(encoding="cp1251"))
            return [(request.split(), answer.split()) for (kind, request), (_, answer) in zip(found, found[1:]) if kind == "Write"]

        two, three = traced(2), traced(3)
        return three[len(two):]

    # --- rows

    def line_use(self):
        """How much of a steady pass the line is busy with the frames and the quiet that the protocol asks for behind each."""
        for baud, bound in ((9600, 0.98), (19200, 0.96), (115200, 0.90)):
            with self.meters(1, [METER]) as (path,):
                frames = self.frames(path)
            own = sum(len(request) + len(answer) for request, answer in frames) * BITS / baud
            busy = own + len(frames) * QUIET * BITS / baud
            passes = 7
            with self.meters(1, [METER], "--baud", str(baud), "--pace") as (path,):
                ends, _ = self.poll(self.config([path], baud=baud), passes)
            steady = sorted(later - before for before, later in zip(ends[1:], ends[2:]))
            taken = steady[len(steady) // 2] - PAUSES_S
            use = busy / taken
            self.row(f"line use at {baud} baud, {len(frames)} exchanges a pass (without the protocol's quiet {own / taken:.2f})", use,
                     f"at least {bound:.2f}", use >= bound, "{:.3f}")

    def exchange(self):
        """One exchange of steady polling with unchanged values, in calls, blocks and instructions of the whole host."""
        few, many = 3, 13
        with self.meters(1, [METER]) as (path,):
            exchanges = len(self.frames(path)) * (many - few)
            config = self.config([path])

            def per_exchange(count):
                return (count(many) - count(few)) / exchanges

            def calls(passes):
                summary = self.folder / "strace.txt"
                subprocess.run(["strace", "-f", "-c", "-o", summary, "-e", "trace=read,write,poll,ppoll,ioctl",
                                *self.run_command(config, passes)], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, check=True)
                return int(re.search(r"(\d+)(?:\s+\d+)? total", summary.read_text()).group(1))

            def valgrind(pattern, *tool):
                def count(passes):
                    done = subprocess.run(["valgrind", *tool, *self.run_command(config, passes)], stdin=subprocess.DEVNULL,
                                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
                    return int(re.search(pattern, done.stderr).group(1).replace(",", ""))
                return count

            count = per_exchange(calls)
            # The line of each pass and the look at what is typed are calls of the same names.
            self.row("system calls of the port for an exchange", count, "at most 4.1", count <= 4.1)
            count = per_exchange(valgrind(r"total heap usage: ([\d,]+) allocs", "--leak-check=no"))
            self.row("heap blocks for an exchange", count, "0", count == 0)
            count = per_exchange(valgrind(r"Collected : (\d+)", "--tool=callgrind", f"--callgrind-out-file={self.folder}/callgrind"))
            self.row("user instructions for an exchange", count, "at most 8000", count <= 8000, "{:.0f}")

    def processor(self):
        """What the whole host takes of the processor for an exchange, beside the same bytes in a bare loop."""
        few, many = 3, 43
        with self.meters(1, [METER]) as (path,):
            frames = self.frames(path)
            listing = self.folder / "frames.txt"
            listing.write_text("".join(f"{len(answer)} {' '.join(request)}\n" for request, answer in frames))
            baud = 115200
            config = self.config([path], baud=baud)
            quiet = QUIET * BITS * 1_000_000 // baud

            def cpu(passes):
                used = self.poll(config, passes)[1]
                return used.ru_utime + used.ru_stime

            ratios = []
            for _ in range(3):
                host = (cpu(many) - cpu(few)) / ((many - few) * len(frames)) * 1e6
                bare = self.peers("replay", path, listing, "60", str(quiet))["bare"]
                ratios.append((host / bare, host, bare, self.peers("replay", path, listing, "60", "0")["bare"]))
            ratio, host, bare, careless = sorted(ratios)[1]
        modbus = self.peers("modbus", "20000")
        peer = modbus["libmodbus"] / modbus["libmodbus_bare"]
        self.row(f"processor time of an exchange over a bare loop of the same bytes ({host:.1f} / {bare:.1f} us; {careless:.1f} "
                 f"us without the protocol's quiet; libmodbus over a bare loop of its own bytes {peer:.2f})", ratio, "at most 1.50", ratio <= 1.5)

    def peers(self, *arguments):
        done = subprocess.run([self.bin / "bench_peers", *arguments], stdout=subprocess.PIPE, text=True, check=True)
        lines = (line.split() for line in done.stdout.splitlines())
        return {name: float(cpu) / float(exchanges) for name, exchanges, cpu in lines}

    def channels(self):
        """Channels of 16 meters inside the host; a pass of one of them alone takes what its lines and pauses take."""
        def longest(ends, count):
            return max(ends[-count:]) - max(ends[-2 * count:-count])

        ends, _ = self.poll(self.config(["simulated"], 16), 3)
        alone = longest(ends, 1)
        for count, bound in ((16, 1.5), (64, 3.0)):
            ends, used = self.poll(self.config(["simulated"] * count, 16), 3)
            ratio = longest(ends, count) / alone
            self.row(f"pass of {count} channels of 16 meters over that of one", ratio, f"at most {bound:.2f}",
                     len(ends) == 3 * count and ratio <= bound)
        self.row("system time over user time, 64 channels", used.ru_stime / used.ru_utime, "below 1.00", used.ru_stime < used.ru_utime)
        for kind, lines in (("simulated", None), ("pseudo-terminal", 256)):
            with contextlib.ExitStack() as stack:
                devices = ["simulated"] * 256
                if lines:
                    devices = stack.enter_context(self.meters(lines, [f"{address}:1" for address in range(1, 17)]))
                ends, used = self.poll(self.config(devices, 16), 3)
            passed = len(ends) == 3 * 256
            seconds = longest(ends, 256) if passed else float("inf")
            self.row(f"s for a pass of 256 {kind} channels of 16 meters", seconds, "below 60", passed and seconds < 60, "{:.1f}")
            memory = used.ru_maxrss * 1024 / (256 * 16 * self.tags())
            self.row(f"bytes of memory for a tag, 256 {kind} channels", memory, "at most 300", memory <= 300, "{:.0f}")

    def tags(self):
        listed = subprocess.run([self.bin / "ostrel-host", "tags", "--type", "1", "--json"], stdout=subprocess.PIPE, text=True, check=True)
        return len(listed.stdout.splitlines())

    def questions(self):
        """Programs that ask one question each and print its ratio with its bound."""
        for program in sorted(self.bin.glob("bench_*")):
            if program.name == "bench_peers":
                continue
            done = subprocess.run([program], stdout=subprocess.PIPE, text=True)
            self.row(program.name.removeprefix("bench_"), done.stdout.strip().splitlines()[-1], "in the line", done.returncode == 0, "{}")

    def page(self, path):
        revision = subprocess.run(["git", "describe", "--always", "--dirty"], stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
        processor = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name")), platform.machine())
        lines = ["# Performance", "",
                 f"Written by `./dev bench` on {time.strftime('%Y-%m-%d')}: commit {revision}, {os.cpu_count()} x {processor}, Linux {platform.release()}.",
                 "One meter of type 1 with all its tags on a pseudo-terminal, unless a row says otherwise; a pass is steady from its second one on.",
                 "Line use is the time of the frames, at 10 bits a byte, and of the two characters of quiet behind each answer, over the pass",
                 "without the pauses that the plug-in's contract asks for. The bare loop keeps that quiet too.", "",
                 "| what | measured | bound | |", "|---|---|---|---|"]
        lines += [f"| {what} | {value} | {bound} | {'met' if passed else 'not met'} |" for what, value, bound, passed in self.rows]
        path.write_text("\n".join(lines) + "\n")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    wanted = sys.argv[2:]
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(build, pathlib.Path(folder))
        for measure in (bench.questions, bench.line_use, bench.exchange, bench.processor, bench.channels):
            if not wanted or any(name in measure.__name__ for name in wanted):
                measure()
        if not wanted:
            bench.page(pathlib.Path(__file__).parent.parent / "docs" / "performance.md")
    return 0 if all(passed for *_, passed in bench.rows) else 1


if __name__ == "__main__":
    sys.exit(main())
