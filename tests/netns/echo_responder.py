#!/usr/bin/env python3
# echo_responder.py LOST DELAY SECONDS: answers echo for the namespace's kernel, which ignores it,
# like a poor link: drops the first LOST requests, answers the rest DELAY s late, prints "ready".
import socket
import sys
import threading
import time


def checksum(data):
    data += b"\0" * (len(data) % 2)
    total = sum(int.from_bytes(data[i:i + 2], "big") for i in range(0, len(data), 2))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    return ~total & 0xFFFF


lost, delay, seconds = int(sys.argv[1]), float(sys.argv[2]), float(sys.argv[3])
sock = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP)
end = time.monotonic() + seconds
print("ready", flush=True)
requests = 0
while (left := end - time.monotonic()) > 0:
    sock.settimeout(left)
    try:
        packet, (sender, _) = sock.recvfrom(2048)
    except socket.timeout:
        break
    message = bytearray(packet[(packet[0] & 0x0F) * 4:])  # past the IP header
    if len(message) < 8 or message[0] != 8:  # 8: an echo request
        continue
    requests += 1
    if requests <= lost:
        continue
    message[0] = 0  # an echo reply
    message[2:4] = b"\0\0"
    message[2:4] = checksum(bytes(message)).to_bytes(2, "big")
    threading.Timer(delay, sock.sendto, (bytes(message), (sender, 0))).start()
