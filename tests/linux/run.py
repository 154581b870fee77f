#!/usr/bin/env python3
"""Boots the guest of scripts/test-linux and runs the plan linux-bring-up from a station outside of it.

The answers to the plan's questions come from tests/linux/world.py, which does in the guest what they ask for.
"""

import json
import os
import pathlib
import pty
import re
import select
import shutil
import socket
import subprocess
import sys
import time
import tomllib

REPOSITORY = pathlib.Path(__file__).parents[2]
STATION = REPOSITORY / "build/release/bin/engineering-station"
PLAN = REPOSITORY / "share/plans/linux-bring-up.toml"
OUTPUT = REPOSITORY / "build/test-linux"
BOOT_LIMIT, ACTION_LIMIT, PLAN_LIMIT = 300, 90, 900
# A login prompt would take the first serial port from the messages; RAUC has to know which slot has booted.
KERNEL_ARGUMENTS = (
    "console=ttyS0 quiet panic=-1 mitigations=off rauc.slot=A systemd.wants=world.service "
    "systemd.mask=serial-getty@ttyS0.service systemd.mask=getty@tty1.service systemd.mask=e2scrub_reap.service"
)
BEGAN = time.monotonic()


class Failure(Exception):
    pass


def say(text):
    print(f"test-linux: [{time.monotonic() - BEGAN:5.1f} s] {text}", flush=True)


class Guest:
    def __init__(self, tree, deb):
        share = OUTPUT / "share"
        share.mkdir(parents=True)
        for file in (deb, *(REPOSITORY / "tests/linux" / name for name in ("world.py", "world.service", "unit.toml"))):
            shutil.copy(file, share)
        self.process = subprocess.Popen(
            ["qemu-system-x86_64", "-machine", "q35", "-accel", "tcg", "-cpu", "max", "-smp", "2", "-m", "1024"]
            + ["-display", "none", "-monitor", "none", "-net", "none"]
            + ["-chardev", f"socket,id=world,path={OUTPUT}/world,server=on,wait=off"]
            + ["-kernel", tree / "vmlinuz", "-initrd", tree / "initrd.gz"]
            + ["-append", KERNEL_ARGUMENTS]
            + ["-virtfs", f"local,path={tree}/system,mount_tag=tree,security_model=none,readonly=on"]
            + ["-virtfs", f"local,path={share},mount_tag=test,security_model=none,readonly=on"]
            + ["-serial", f"file:{OUTPUT}/console"]
            + ["-chardev", "pty,id=uart", "-serial", "chardev:uart", "-serial", "chardev:world"],
            stdout=subprocess.PIPE,
            text=True,
        )
        # The kernel chooses the name of the line. QEMU prints it first.
        self.line = re.search(r"/dev/pts/\d+", self.process.stdout.readline())[0]
        self.world = socket.socket(socket.AF_UNIX)
        self.world.connect(f"{OUTPUT}/world")
        self.received = b""

    def answer(self, limit):
        """Waits for a line of the world. Returns what it says."""
        end = time.monotonic() + limit
        while b"\n" not in self.received:
            self.world.settimeout(max(0.1, end - time.monotonic()))
            try:
                chunk = self.world.recv(65536)
            except TimeoutError:
                raise Failure(f"expected an answer of the guest within {limit} s; see {OUTPUT}/console") from None
            if not chunk:
                raise Failure(f"the guest has ended; see {OUTPUT}/console")
            self.received += chunk
        line, self.received = self.received.split(b"\n", 1)
        return json.loads(line)

    def do(self, action):
        self.world.sendall(json.dumps({"do": action}).encode() + b"\n")
        return self.answer(ACTION_LIMIT)

    def end(self):
        self.process.kill()
        self.process.wait()


    def console(self):
        return (OUTPUT / "console").read_text(errors="replace")

    def await_on_console(self, text, limit):
        end = time.monotonic() + limit
        while text not in self.console():
            if time.monotonic() > end:
                return {"ok": False, "reason": f"expected '{text}' on the console within {limit} s"}
            select.select([], [], [], 0.1)
        return {"ok": True}


def run_plan(guest):
    """Runs the plan at a terminal, where the world answers. Returns the exit status and the record."""
    questions = {}
    plan = tomllib.loads(PLAN.read_text())
    for phase in ("setup", "main", "teardown"):
        for group in plan.get(phase, []):
            questions |= {step["prompt"]: step["id"] for step in group["steps"] if "prompt" in step}

    def answer(question):
        if question == "user-data-have-gone":
            return guest.await_on_console("guest: user data cleared", ACTION_LIMIT)
        if question == "unit-has-restarted":
            return guest.answer(BOOT_LIMIT)
        return guest.do(question)

    keyboard, terminal = pty.openpty()
    station = subprocess.Popen(
        [STATION, "plan", "run", PLAN, "--port", guest.line, "--results", OUTPUT / "results", "--yes"],
        stdin=terminal, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
    )
    end, shown = time.monotonic() + PLAN_LIMIT, ""
    while True:
        ready, _, _ = select.select([station.stdout], [], [], max(0, end - time.monotonic()))
        if not ready:
            station.kill()
            raise Failure(f"expected the plan to end within {PLAN_LIMIT} s")
        chunk = os.read(station.stdout.fileno(), 65536).decode()
        if not chunk:
            break
        print(chunk, end="", flush=True)
        shown = (shown + chunk)[-2000:]
        if asked := next((text for text in questions if text + " [y/n] " in shown), None):
            shown = ""
            outcome = answer(questions[asked])
            print("yes" if outcome["ok"] else f"no: {outcome['reason']}", flush=True)
            os.write(keyboard, b"yes\n" if outcome["ok"] else b"no\n")
    records = list((OUTPUT / "results").glob("*/record.json"))
    return station.wait(), json.loads(records[0].read_text()) if records else {"phases": []}


def mapped_rows():
    """The rows of the table in docs/linux.md, "INTERFACE: OPERATION", without those that have no counterpart."""
    text = (REPOSITORY / "docs/linux.md").read_text()
    table = text.split("## What each operation does")[1].split("\n\n")[1]
    interface, rows = "", []
    for line in table.splitlines()[2:]:
        cells = [cell.strip() for cell in line.strip("|").split(" | ")]
        interface = cells[0] or interface
        if not cells[2].startswith(("none", "no effect", "off:")):
            rows.append(f"{interface}: {cells[1]}")
    return rows


def main():
    tree, deb = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    shutil.rmtree(OUTPUT, ignore_errors=True)
    guest = Guest(tree, deb)
    try:
        begun = guest.answer(BOOT_LIMIT)
        if not begun["ok"]:
            raise Failure(f"the guest is not ready: {begun['reason']}; see {OUTPUT}/console")
        say("the guest has booted and installed the unit")
        print(guest.do("check")["result"])
        test(guest, json.loads(begun["result"]))
    finally:
        guest.end()


def test(guest, missing):
    status, record = run_plan(guest)
    say(f"the plan has ended with status {status}")
    for driver, reason in missing.items():
        print(f"SKIPPED {driver}: {reason.strip()}")
    passed = {group["name"] for phase in record["phases"] for group in phase["groups"] if group["verdict"] == "PASS"}
    if status != 0:
        print(guest.do("journal")["result"])
        raise Failure(f"expected the plan to pass; see {OUTPUT}/results")
    if untested := [row for row in mapped_rows() if row not in passed]:
        raise Failure("docs/linux.md: expected a group of the plan for each row that is mapped, got none for "
                      + "; ".join(untested))
    # QEMU drops bytes that it has not yet read when the line is closed: keep it open.
    with open(guest.line, "rb", buffering=0):
        for command in (["test.set-mode", "mode=on"], ["car.shut-down", "--yes"]):
            subprocess.run([STATION, "send", *command, "--port", guest.line], timeout=30, check=True)
        off = guest.await_on_console("reboot: Power down", ACTION_LIMIT)
    if not off["ok"]:
        print(guest.do("journal")["result"])
        raise Failure(off["reason"])
    say("the unit is off; all tests passed")


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit(f"test-linux: {failure}")
