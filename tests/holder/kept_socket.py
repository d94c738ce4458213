#!/usr/bin/env python3
"""Starts a holder on a socket that is kept, kills it and starts it anew, until there is a file "done".
usage: kept_socket.py SOCKET KRHOLDER CONFIG   (prints how often it was killed)"""
import os
import signal
import socket
import sys
import time

path, *command = sys.argv[1:]
listening = socket.socket(socket.AF_UNIX)
listening.bind(path)
listening.listen(1000)


def start(errors):
    child = os.fork()
    if child == 0:
        os.dup2(listening.fileno(), 3)
        os.set_inheritable(3, True)
        os.dup2(errors, 2)
        os.execve(command[0], command, {"LISTEN_PID": str(os.getpid()), "LISTEN_FDS": "1"})
    return child


kills = 0
while not os.path.exists("done"):
    lines, errors = os.pipe()
    holder = start(errors)
    os.read(lines, 1)  # it has started
    time.sleep(0.5)  # for whoever the last one left without an answer
    os.kill(holder, signal.SIGKILL)
    os.waitpid(holder, 0)
    os.close(lines)
    os.close(errors)
    time.sleep(0.1)
    kills += 1
print(kills)
