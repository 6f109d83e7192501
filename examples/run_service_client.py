#!/usr/bin/env python3
"""Runs a client against a service of its own: run_service_client.py BIOPROCESSING CLIENT [COMMAND-OF-THE-CLIENT...]"""
import re
import subprocess
import sys
import tempfile

host, *client = sys.argv[1:]
with tempfile.TemporaryDirectory() as data:
    service = subprocess.Popen([host, "serve", "--port", "0", "--data", data], stdout=subprocess.PIPE, text=True)
    try:
        line = service.stdout.readline()
        port = re.search(r":(\d+)\b", line)
        if not port:
            sys.exit(f"the service did not say where it listens: {line!r}")
        status = subprocess.run([*client, "127.0.0.1", port.group(1)], timeout=60).returncode
    finally:
        service.terminate()
        service.communicate(timeout=20)
sys.exit(status)
