#!/usr/bin/python3
"""Draws a terminal: the screen around the hint of a command, or short commands one below the other.

    docs/tools/picture.py scripts/run > docs/demo.svg
    PATH=build/release/src/ctl:$PATH LANVOYCTL_PORT=PORT docs/tools/picture.py -- lanvoyctl 'lanvoyctl wifi' > docs/ctl.svg
"""
import fcntl
import html
import os
import pty
import re
import signal
import struct
import sys
import termios
import time

COLUMNS, BEFORE, AFTER = 112, 28, 14  # at most so many lines before the hint, and from it on
SECONDS_AFTER = 25
COLORS = {"31": "#f7768e", "32": "#9ece6a", "33": "#e0af68", "34": "#7aa2f7", "35": "#bb9af7", "36": "#7dcfff"}
LINE, CELL = 17, 7.83  # pixels


def recording(command):
    """The lines that the command writes until some seconds after its hint."""
    pid, terminal = pty.fork()
    if pid == 0:
        fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", BEFORE + AFTER, COLUMNS, 0, 0))
        os.execvp(command[0], command)
    data, end = b"", None
    while end is None or time.monotonic() < end:
        data += os.read(terminal, 65536)
        if end is None and b"In another terminal" in data:
            end = time.monotonic() + SECONDS_AFTER
    os.kill(pid, signal.SIGINT)
    os.waitpid(pid, 0)
    return data.decode().replace("\r", "").split("\n")


def session(commands, columns):
    """The lines of a terminal in which each command has run to its end."""
    lines = []
    for command in commands:
        pid, terminal = pty.fork()
        if pid == 0:
            fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", BEFORE, columns, 0, 0))
            os.execvp(command.split()[0], command.split())
        data = b""
        try:
            while part := os.read(terminal, 65536):
                data += part
        except OSError:  # the command has ended
            os.waitpid(pid, 0)
        lines += [f"\x1b[33m$\x1b[0m {command}", *data.decode().replace("\r", "").rstrip("\n").split("\n"), ""]
    return lines[:-1]


def drawn(line, style):
    """One line as SVG, and the style that the next one begins with."""
    spans = []
    for part in re.split(r"(\x1b\[[\d;]*m)", line):
        if part.startswith("\x1b"):
            style = part[2:-1].split(";")
        elif part:
            color = next((COLORS[code] for code in style if code in COLORS), "#7f849c" if "2" in style else "#cdd6f4")
            weight = ' font-weight="bold"' if "1" in style else ""
            spans.append(f'<tspan fill="{color}"{weight}>{html.escape(part, False)}</tspan>')
    return "".join(spans), style


def picture(lines, columns=COLUMNS):
    width, height = int(columns * CELL) + 32, len(lines) * LINE + 32
    print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}" '
          'font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="13">')
    print(f'<rect width="{width}" height="{height}" rx="8" fill="#1e1e2e"/>')
    style = []
    for number, line in enumerate(lines):
        text, style = drawn(line, style)
        print(f'<text x="16" y="{28 + number * LINE}" xml:space="preserve">{text}</text>')
    print("</svg>")


def main():
    if sys.argv[1] == "--":
        picture(session(sys.argv[2:], 80), 80)
        return
    lines = recording(sys.argv[1:])
    hint = next(number for number, line in enumerate(lines) if "In another terminal" in line)
    start = next(n for n in range(max(0, hint - BEFORE), hint + 1) if n == hint or re.search(r":\d\d\x1b", lines[n]))
    picture(lines[start:hint + AFTER])


main()
