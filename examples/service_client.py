#!/usr/bin/env python3
"""Drives one short acquisition through the command service: service_client.py [address [port]]"""
import json
import socket
import sys
import time

address = sys.argv[1] if len(sys.argv) > 1 else "127.0.0.1"
port = int(sys.argv[2]) if len(sys.argv) > 2 else 336


def ask(command, **arguments):
    """One request, one connection, which the service ends: its answers count UTF-16 units, so they are read to the end."""
    body = json.dumps(arguments) if arguments else ""  # ASCII, whose length is the same in every unit
    method = "POST" if body else "GET"
    request = f"{method} /{command} HTTP/1.1\r\nContent-Length: {len(body)}\r\n\r\n{body}"
    with socket.create_connection((address, port), timeout=10) as connection:
        connection.sendall(request.encode())
        answer = b""
        while chunk := connection.recv(65536):
            answer += chunk
    head, _, text = answer.decode().partition("\r\n\r\n")
    if " 200 OK" not in head:
        raise RuntimeError(f"{command}: {text}")
    return text


def wait_for(condition, seconds=15):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError("the service did not get there")
        time.sleep(0.2)


def status():
    return json.loads(ask("gethalvinstatus"))


print("status:", status())
wait_for(lambda: any(d["name"] == "Simulator 8" for d in json.loads(ask("discoverdevices"))["devices"]))
print(ask("startdevice", device="Simulator 8"))
wait_for(lambda: status()["curr_mode"])
info = json.loads(ask("getinfo"))
print(info["channelAmount"], "channels at", info["frequency"], "Hz:", [c["name"] for c in info["channels"]])
ask("getdata")  # from here on
time.sleep(2)
data = json.loads(ask("getdata"))
print(data["samples"], "samples; the first channel begins", data["data"][0]["d"][0][:5])
print(ask("stopdevice"))
