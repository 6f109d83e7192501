#!/bin/sh
# Drives one short acquisition through the command service with curl: service_client.sh [address [port]]
set -eu
service="http://${1:-127.0.0.1}:${2:-336}"

# Answers announce UTF-16 units, fewer than their bytes where there is a "µ": so they are read to the end of the
# connection.
ask() {
    command=$1
    shift
    curl --silent --show-error --max-time 10 --ignore-content-length ${1:+--data-binary "$1"} "$service/$command"
}

# await COMMAND TEXT: asks until the answer contains the text, 15 s at most.
await() {
    tries=0
    until ask "$1" | grep -qF "$2"; do
        tries=$((tries + 1))
        [ "$tries" -lt 75 ] || { echo "$1 never answered $2" >&2; exit 1; }
        sleep 0.2
    done
}

ask gethalvinstatus; echo
await discoverdevices '"name":"Simulator 8"'
ask discoverdevices; echo
ask startdevice '{"device":"Simulator 8"}'; echo
await gethalvinstatus '"curr_mode":true'
ask getinfo | cut -c 1-200
ask getdata >/dev/null
sleep 2
ask getdata | cut -c 1-200
ask stopdevice; echo
