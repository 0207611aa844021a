#!/usr/bin/env python3
# Real pointer and keyboard input for a Wayland session through its VNC server
# (wayvnc's virtual pointer and keyboard), as a user's hands would give it.
#   vnc-input.py SOCKET click X Y [left|right] ... | key Return|Escape|Down ...
import socket, struct, sys, time

KEYS = {"Return": 0xFF0D, "Escape": 0xFF1B, "Down": 0xFF54}
BUTTONS = {"left": 1, "right": 4}
s = socket.socket(socket.AF_UNIX)
s.connect(sys.argv[1])


def recv(n):
    data = s.recv(n, socket.MSG_WAITALL)
    if len(data) < n:
        sys.exit("vnc-input: the server hung up")
    return data


recv(12)
s.sendall(b"RFB 003.008\n")
recv(recv(1)[0])              # security types; None is offered on a local socket
s.sendall(b"\x01")
recv(4)
s.sendall(b"\x01")            # shared session
recv(struct.unpack(">I", recv(24)[20:24])[0])
args = sys.argv[2:]
while args:
    what = args.pop(0)
    if what == "click":
        x, y = int(args.pop(0)), int(args.pop(0))
        mask = BUTTONS[args.pop(0)] if args and args[0] in BUTTONS else 1
        for m, pause in ((0, 0.2), (mask, 0.1), (0, 0.3)):
            s.sendall(struct.pack(">BBHH", 5, m, x, y))
            time.sleep(pause)
    elif what == "key":
        k = KEYS[args.pop(0)]
        for down in (1, 0):
            s.sendall(struct.pack(">BBxxI", 4, down, k))
        time.sleep(0.2)
time.sleep(0.3)
