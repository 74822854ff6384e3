#!/usr/bin/env bash
# The demo's second half, run by demo.sh inside fresh network, mount and process namespaces. All processes and
# the network go with the process namespace, however this script ends.
set -euo pipefail
bin=build/release

mount -t proc proc /proc
mkdir -p out
exec 9<> <(:)  # a pipe that tells the camera that its cable is plugged
# In a session of its own: Ctrl-C is for the consumer, which wants to say goodbye to the camera.
setsid unshare --net bash -c "read -r -u 9; exec $bin/sim/gevsim --address 192.168.77.2" >out/gevsim.log 2>&1 &
camera=$!
trap 'kill "$camera" 2>/dev/null || true' EXIT

ip link set lo up
until [ "$(readlink "/proc/$camera/ns/net")" != "$(readlink /proc/self/ns/net)" ]; do sleep 0.05; done
ip link add host type veth peer name cam netns "$camera"
ip address add 192.168.77.1/24 dev host
ip link set host up
nsenter --net="/proc/$camera/ns/net" bash -c \
    'ip link set lo up; ip address add 192.168.77.2/24 dev cam; ip link set cam up; ip route add default dev cam'
echo plugged >&9

[ -e norvo_log.conf ] || "$bin/apps/gentl" log --init
"$bin/apps/gentl" list
"$bin/apps/gentl" grab -n 50 -o out
