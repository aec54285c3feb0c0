#!/usr/bin/env python3
"""Writes the datagram payloads used by the loopback throughput runs, built from their wire layouts:
v5 with 30 records, v9 with a 16-field template and 20 data records in one datagram, and sFlow v5 with
8 flow samples (128-byte sampled Ethernet/IPv4/TCP header + extended switch)."""
import os
import struct
import sys

out = sys.argv[1] if len(sys.argv) > 1 else "."
os.makedirs(out, exist_ok=True)


def ip(a, b, c, d):
    return (a << 24) | (b << 16) | (c << 8) | d


def v5(records=30):
    head = struct.pack(">HHIIIIBBH", 5, records, 123456, 1700000000, 0, 42, 0, 0, 0)
    body = b""
    for i in range(records):
        body += struct.pack(">IIIHHIIIIHHBBBBHHBBH",
                            ip(10, 0, i // 256, i % 256), ip(192, 168, 1, i % 256), ip(10, 0, 0, 1),
                            1, 2, 10 + i, 1500 * (i + 1), 1000, 2000, 1024 + i, 80,
                            0, 0x1B, 6, 0, 65001, 65002, 24, 16, 0)
    return head + body


V9_FIELDS = [(8, 4), (12, 4), (15, 4), (10, 2), (14, 2), (2, 4), (1, 4), (22, 4), (21, 4),
             (7, 2), (11, 2), (6, 1), (4, 1), (5, 1), (16, 2), (17, 2)]


def v9(records=20, template_id=256):
    tmpl = struct.pack(">HH", template_id, len(V9_FIELDS))
    for t, length in V9_FIELDS:
        tmpl += struct.pack(">HH", t, length)
    tmpl_set = struct.pack(">HH", 0, 4 + len(tmpl)) + tmpl
    data = b""
    for i in range(records):
        values = [ip(10, 1, 0, i), ip(10, 2, 0, i), ip(10, 0, 0, 1), 3, 4, 5 + i, 700 + i, 1000, 2000,
                  40000 + i, 443, 0x18, 6, 0, 64512, 64513]
        for (t, length), v in zip(V9_FIELDS, values):
            data += v.to_bytes(length, "big")
    pad = (-(4 + len(data))) % 4
    data_set = struct.pack(">HH", template_id, 4 + len(data) + pad) + data + b"\0" * pad
    head = struct.pack(">HHIIII", 9, 2, 123456, 1700000000, 7, 1)
    return head + tmpl_set + data_set


def ethernet_ipv4_tcp(s, length=128):
    """The first `length` bytes of an Ethernet frame carrying IPv4/TCP, so that collectors decode it."""
    eth = bytes.fromhex("020000000002" "020000000001") + struct.pack(">H", 0x0800)
    total = 1500
    ipv4 = struct.pack(">BBHHHBBHII", 0x45, 0, total, s, 0x4000, 64, 6, 0, ip(10, 3, 0, s + 1),
                       ip(10, 4, 0, 1))
    tcp = struct.pack(">HHIIBBHHH", 50000 + s, 443, 1, 0, 0x50, 0x18, 65535, 0, 0)
    frame = eth + ipv4 + tcp
    return frame + bytes((i * 7 + s) & 0xFF for i in range(length - len(frame)))


def sflow(samples=8):
    head = struct.pack(">IIIIIII", 5, 1, ip(127, 0, 0, 1), 0, 99, 3600000, samples)
    body = b""
    for s in range(samples):
        frame = ethernet_ipv4_tcp(s)
        hdr_rec = struct.pack(">IIII", 1, 1518, 4, 128) + frame
        rec1 = struct.pack(">II", 1, len(hdr_rec)) + hdr_rec
        rec2 = struct.pack(">IIIIII", 1001, 16, 10, 0, 20, 0)
        sample = struct.pack(">IIIIIIII", s, (0 << 24) | 3, 512, 512 * s, 0, 3, 4, 2) + rec1 + rec2
        body += struct.pack(">II", 1, len(sample)) + sample
    return head + body


for name, payload in (("v5_30.bin", v5()), ("v9_t16x20.bin", v9()), ("sflow5_8.bin", sflow())):
    with open(os.path.join(out, name), "wb") as f:
        f.write(payload)
    print(f"{name}: {len(payload)} bytes")
