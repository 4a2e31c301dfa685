#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""short_frames.py SOCKET ADDRESS: has nq-gev-camera, by its control socket, send one frame that lacks a part whenever
somebody connects to TCP port 3957 of ADDRESS; who connects reads "done"."""
import socket
import socketserver
import sys


class Caller(socketserver.BaseRequestHandler):
    def handle(self):
        with socket.socket(socket.AF_UNIX) as camera:
            camera.connect(sys.argv[1])
            camera.sendall(b'{"fault": "short-frame"}\n')
            if b"error" not in camera.recv(4096):
                self.request.sendall(b"done\n")


socketserver.TCPServer.allow_reuse_address = True
with socketserver.TCPServer((sys.argv[2], 3957), Caller) as server:
    print("ready", flush=True)
    server.serve_forever()
