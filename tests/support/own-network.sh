#!/bin/sh
# Runs a test program in a network namespace of its own, made in a user namespace so that no root
# is needed: loopback and one LAN, a /24 on a veth whose other end goes nowhere. The drivers it
# starts read an empty neighbour table, not this machine's, and fill a LAN that is always the
# same; nothing they send leaves. Where no such namespace can be made, runs the program as it is
# and says so.
PATH="$PATH:/usr/sbin:/sbin"
if unshare --net --user --map-root-user true 2>/dev/null; then
    exec unshare --net --user --map-root-user sh -c 'ip link set lo up &&
        ip link add lan0 type veth peer name lan1 && ip addr add 10.200.0.2/24 dev lan0 &&
        ip link set lan1 up && ip link set lan0 up && exec "$@"' sh "$@"
fi
echo "own-network.sh: no network namespace of our own here; the driver reads this machine's" \
    "neighbour table" >&2
exec "$@"
