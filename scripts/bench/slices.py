#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""One group of the measurements of ./run bench, beside the camera of scripts/two_hosts.sh that it needs.

    CAMERA_ARGUMENTS=... scripts/two_hosts.sh scripts/bench/slices.py GROUP ROUNDS SCALE

Every sample is a process of its own, of a part of a second. In each round the library and its reference follow each
other, in the other order in every second round, so that what slows the machine for a while slows both. Prints JSON.
"""

import json
import os
import statistics
import subprocess
import sys

PRODUCER = "build/libnq_gev_rdma_tl.cti"
PROGRAMS = "build/bench/"
CAMERA = os.environ.get("CAMERA_ADDRESS", "10.77.0.2")
LONGEST = 120  # seconds of one sample


class SampleFailed(Exception):
    """A program ended with an error; the text is its own."""


def sample(program, *arguments, standard=False):
    """What the program prints, by the library's own answers or with the standard's."""
    environment = {name: value for name, value in os.environ.items() if name != "NQ_GEV_TL_STANDARD"}
    if standard:
        environment["NQ_GEV_TL_STANDARD"] = "1"
    command = [PROGRAMS + program, *map(str, arguments)]
    try:
        done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=LONGEST, check=False)
    except (OSError, subprocess.TimeoutExpired) as failure:
        raise SampleFailed(str(failure)) from failure
    if done.returncode != 0:
        said = done.stderr.strip() or f"ended with {done.returncode}"
        raise SampleFailed(f"{' '.join(command)}{', standard' if standard else ''}: {said}")
    return json.loads(done.stdout)


class Group:
    """The rows of one group, and what had to be left out."""

    def __init__(self, rounds, scale):
        self.rounds = rounds
        self.scale = scale  # of all times: 1 in a whole run
        self.rows = []
        self.left_out = {}
        self.steps = []

    def add(self, name, at, ours, reference=None):
        """One sample of a figure."""
        row = {"name": name, "at": at, "ours": ours}
        if reference is not None:
            row["reference"] = reference
        self.rows.append(row)

    def round(self, number, measures):
        """Takes a sample of each. `measures` are (name, whether it is ours, call); a reference that fails is None."""
        results = {}
        for name, ours, call in measures if number % 2 == 0 else reversed(measures):
            try:
                results[name] = call()
            except SampleFailed as failure:
                if ours:
                    raise
                results[name] = None
                self.left_out[name] = str(failure)
        return results

    def compare(self, name, at, ours, reference, key, reference_name):
        """Adds a row unless the reference did not run; then the figure is left out."""
        if reference is None:
            self.left_out[name, at] = self.left_out[reference_name]
        else:
            self.add(name, at, ours[key], reference[key])

    def road(self, road, *arguments, standard=False, program="frame_road", seconds=0.5):
        """A call that measures frames."""
        return lambda: sample(program, "--road", road, "--camera", CAMERA, "--producer", PRODUCER, "--seconds",
                              seconds * self.scale, *arguments, standard=standard)


def frames(group, size):
    """Rate and processor time of library-allocated and of announced buffers, in both modes."""
    measures = [
        ("handover", False, group.road("handover")),
        ("library", True, group.road("library")),
        ("bare", False, group.road("bare")),
        ("announced, stated", True, group.road("library", "--announced")),
        ("handover with a copy", False, group.road("handover", "--announced")),
        ("announced, standard", True, group.road("library", "--announced", standard=True)),
    ]
    for number in range(group.rounds):
        got = group.round(number, measures)
        for what, key in (("rate", "frames_per_second"), ("cpu", "cpu_us_per_frame")):
            for reference in ("handover", "bare"):
                group.compare(f"frame_{what}_vs_{reference}", size, got["library"], got[reference], key, reference)
            for mode, reference in (("stated", "handover with a copy"), ("standard", "handover")):
                group.compare(f"announced_{what}_vs_handover", f"{size}, {mode}", got[f"announced, {mode}"],
                              got[reference], key, reference)


def counts(group, size):
    """Calls and wake-ups, of the library and, beside it, of the references."""
    for number in range(min(3, group.rounds)):
        measures = [(road, road == "library", group.road(road, program="frame_road_counted", seconds=0.3))
                    for road in ("library", "handover", "bare")]
        for road, result in group.round(number, measures).items():
            for key in ("wakeups", "syscalls", "locks", "notifies", "waits"):
                name = f"{key}_per_frame"
                if result is not None and name in result:
                    group.add(name, f"{size}, {road}", result[name])
                else:
                    group.left_out[name, f"{size}, {road}"] = group.left_out.get(road, "not counted on this system")


def memory(group, size):
    """What a block takes while frames come: eight, and sixteen more."""
    for _ in range(min(3, group.rounds)):
        few, many = (sample("library_facts", "--fact", "memory", "--camera", CAMERA, "--producer", PRODUCER,
                            "--buffers", count) for count in (8, 24))
        per_block = (many["resident"] - few["resident"]) / (many["buffers"] - few["buffers"])
        group.add("memory_per_block", size, per_block, many["payload"])


def frame_cost(group, size, count):
    """What the library allocates and copies, by kind of buffer and mode."""
    for kind, more in (("library-allocated", []), ("announced", ["--announced"])):
        for mode in ("stated", "standard"):
            result = sample("frame_cost", "--camera", CAMERA, "--producer", PRODUCER, "--frames", count, *more,
                            standard=mode == "standard")
            for key in ("allocations_per_frame", "copies_per_frame"):
                group.add(key, f"{size}, {kind}, {mode}", result[key])


def sized(size, frames_of_cost):
    """The group of one size of frames."""

    def measure(group):
        frames(group, size)
        counts(group, size)
        if size == "1 MiB" or (size == "16 MiB" and group.scale == 1):
            memory(group, size)
        if group.scale == 1 or size == "64 KiB":
            frame_cost(group, size, max(50, int(frames_of_cost * group.scale)))

    return measure


def latency(group):
    """From the completion to the consumer, at a camera that leaves time between two frames: thousands of them, so that
    the longest of a thousand is not one alone."""
    measures = [(road, road == "library", group.road(road, "--latency", program="frame_road_counted", seconds=4))
                for road in ("handover", "library")]
    for number in range(group.rounds):
        got = group.round(number, measures)
        for part in ("p50", "p99", "p99.9"):
            ages = {road: result and result["latency_us"] for road, result in got.items()}
            group.compare("latency_completion_to_consumer", part, ages["library"], ages["handover"], part, "handover")


def registers(group):
    """Reads over the control channel, and the calls that need no camera."""
    for memory_too in ([], ["--memory"]):
        kind = "memory" if memory_too else "register"
        at = "512 bytes" if memory_too else "4 bytes"

        def reads(by, more=memory_too):
            return lambda: sample("port_reads", "--by", by, "--camera", CAMERA, "--producer", PRODUCER, "--seconds",
                                  0.4 * group.scale, *more)

        measures = [("udp", False, reads("udp")), ("library", True, reads("library")),
                    ("aravis", False, reads("aravis"))]
        for number in range(group.rounds):
            got = group.round(number, measures if not memory_too else measures[1:])
            for reference in ("udp", "aravis"):
                if reference in got:
                    group.compare(f"{kind}_read_vs_{reference}", at, got["library"], got[reference],
                                  "reads_per_second", reference)


def fact(name, *arguments):
    """One fact of the library."""
    return sample("library_facts", "--fact", name, "--camera", CAMERA, "--producer", PRODUCER, *arguments)


def starts(group):
    """The way to the first frame and back, and single calls."""
    for _ in range(group.rounds):
        steps = fact("steps")
        group.steps.append(steps)
        group.add("open_to_first_frame_ms", "8 buffers of 4 KiB",
                  sum(steps[f"{step}_ms"] for step in ("load_and_interfaces", "find_and_open_camera", "announce",
                                                       "start", "first_frame")))
        group.add("start_stop_ms", "8 buffers of 4 KiB, first", steps["start_ms"] + steps["stop_ms"])
        group.add("start_stop_ms", "8 buffers of 4 KiB, again", steps["start_again_ms"] + steps["stop_again_ms"])
        group.add("trace_closed_ns", "a line", sample("closed_trace")["ns"])
        calls = {count: fact("info-calls", "--buffers", count, "--seconds", 0.2 * group.scale)["ns"]
                 for count in (10, 100, 1000)}
        group.add("info_call_ns", "DSGetBufferInfo, 10 buffers", calls[10])
        for count in (100, 1000):
            group.add("scale_modules", f"{count} buffers over 10", calls[count], calls[10])


def buffers(group):
    """What a frame costs with many buffers, over what it costs with four."""
    for standard, mode in ((False, "stated"), (True, "standard")):
        measures = [(count, True, group.road("library", "--buffers", count, standard=standard, seconds=0.3))
                    for count in (4, 32, 99)]
        for number in range(group.rounds):
            got = group.round(number, measures)
            for count in (32, 99):
                group.add("scale_buffers", f"{count} over 4, {mode}", got[count]["cpu_us_per_frame"],
                          got[4]["cpu_us_per_frame"])


def touch(group):
    """Pages of the blocks before the first frame, of a camera that sends none."""
    for _ in range(min(3, group.rounds)):
        group.add("start_touch", "8 blocks of 64 MiB", fact("touch")["resident"] / os.sysconf("SC_PAGESIZE"))


def cameras(group):
    """One process with several cameras at a rate of their own."""
    first = CAMERA.rsplit(".", 1)
    addresses = [f"{first[0]}.{int(first[1]) + index}" for index in range(8)]
    counts_of_cameras = (1, 2, 4, 8) if group.scale == 1 else (1, 2)
    measures = [(count, True, lambda more=addresses[:count]: sample(
        "frame_road", "--camera", *more, "--producer", PRODUCER, "--seconds", group.scale))
                for count in counts_of_cameras]
    for number in range(min(3, group.rounds)):
        got = group.round(number, measures)
        for count in counts_of_cameras[1:]:
            group.add("scale_cameras", f"{count} over 1", got[count]["cpu_us_per_frame"], got[1]["cpu_us_per_frame"])
            group.add("scale_cameras_rate", f"{count} over {count} times 1", got[count]["frames_per_second"],
                      count * got[1]["frames_per_second"])


def still(side, *more):
    """Arguments of a camera whose pictures cost it nothing to make."""
    return f"--width {side} --height {side} --pattern ColorBar " + " ".join(more)


# The group: its camera's arguments, and what measures it.
GROUPS = {
    "4 KiB": (still(64), sized("4 KiB", 5000)),
    "64 KiB": (still(256), sized("64 KiB", 2000)),
    "1 MiB": (still(1024), sized("1 MiB", 500)),
    "16 MiB": (still(4096), sized("16 MiB", 50)),
    "latency": (still(256, "--fps 500"), latency),
    "registers": (still(64), registers),
    "starts": (still(64), starts),
    "buffers": (still(256), buffers),
    "touch": (still(8192, "--no-free-run"), touch),
    "cameras": (still(256, "--fps 200", "--count 8"), cameras),
}


def show_tracepoints():
    """Lets the programs find the tracepoint of system calls. The mount goes with the namespace of the two hosts; without
    the right to it, system calls are not counted."""
    private = os.environ.get("NQ_RDMA_LOOPBACK_DIR", "").startswith("/dev/shm/")
    if private and not os.path.exists("/sys/kernel/tracing/events"):
        subprocess.run(["mount", "-t", "tracefs", "tracefs", "/sys/kernel/tracing"], stderr=subprocess.DEVNULL, check=False)


def main():
    """Measures one group."""
    show_tracepoints()
    name, rounds, scale = sys.argv[1], int(sys.argv[2]), float(sys.argv[3])
    group = Group(rounds, scale)
    try:
        GROUPS[name][1](group)
    except SampleFailed as failure:
        print(f"bench: {name}: {failure}", file=sys.stderr)
        return 1
    steps = {key: statistics.median(one[key] for one in group.steps) for key in (group.steps[0] if group.steps else [])}
    there = {(row["name"], row["at"]) for row in group.rows}
    left_out = [{"name": key[0], "at": key[1], "reason": reason}
                for key, reason in group.left_out.items() if isinstance(key, tuple) and key not in there]
    json.dump({"rows": group.rows, "left_out": left_out, "steps": steps}, sys.stdout)
    return 0


if __name__ == "__main__":
    sys.exit(main())
