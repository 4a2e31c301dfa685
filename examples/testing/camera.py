# SPDX-License-Identifier: Apache-2.0
"""One file to copy: tells a virtual camera what is to go wrong, by the socket in CAMERA_CONTROL (with_camera.sh sets it).

As a module, `tell(fault="id-jump:10:1")`; by hand `camera.py '{"fault": "id-jump:10:1"}'`, which prints the answer.
"""
import json
import os
import socket
import sys


def tell(**command):
    """Sends one command and gives the camera's answer. Raises RuntimeError with the camera's words when it refuses."""
    with socket.socket(socket.AF_UNIX) as camera:
        camera.connect(os.environ["CAMERA_CONTROL"])
        camera.sendall(json.dumps(command).encode() + b"\n")
        with camera.makefile() as lines:
            answer = json.loads(lines.readline())
    if not answer["ok"]:
        raise RuntimeError(answer["error"])
    return answer


if __name__ == "__main__":
    print(json.dumps(tell(**json.loads(sys.argv[1]))))
