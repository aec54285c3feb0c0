#!/usr/bin/python3
"""Captures sFlow v5 datagrams from a real agent: pmacct's pmacctd with its sfprobe plugin, run as a
black box on loopback and fed a pcap written here with scapy.

For each scenario the script writes the traffic to sflow_pmacct_<n>_traffic.pcap, runs pmacctd on it
(every packet sampled) with the agent sending to a UDP listener on 127.0.0.1, and stores each datagram
received as sflow_pmacct_<n>.bin (the UDP payload only). Run from any directory:

    /usr/bin/python3 tests/data/sflow_pmacct_gen.py

Needs the Debian packages pmacct and python3-scapy. The datagrams carry no clock values (uptime 0,
sequence 1), so reruns give the same bytes.
"""

import os
import random
import socket
import subprocess
import sys
import tempfile
import threading
import time

from scapy.all import ARP, ICMP, IP, TCP, UDP, Dot1Q, Ether, IPv6, Raw, wrpcap

HERE = os.path.dirname(os.path.abspath(__file__))
SRC_MAC = "00:1a:2b:3c:4d:5e"
DST_MAC = "00:11:22:33:44:55"


def tcp_frames(count):
    # 14 + 20 + 20 + 100 = 154-byte frames: the agent keeps a 128-byte header of each.
    return [
        Ether(src=SRC_MAC, dst=DST_MAC)
        / IP(src="10.0.0.1", dst="10.0.0.2", ttl=64, id=100 + i)
        / TCP(sport=40000 + i, dport=443, flags="PA", seq=1000)
        / Raw(b"x" * 100)
        for i in range(count)
    ]


def mixed_frames():
    # Two TCP frames, a VLAN-tagged UDP frame (66 bytes: its header length is not a multiple of 4)
    # and an IPv6 UDP frame.
    return tcp_frames(2) + [
        Ether(src=SRC_MAC, dst=DST_MAC)
        / Dot1Q(vlan=42, prio=5)
        / IP(src="10.0.1.1", dst="10.0.1.2")
        / UDP(sport=5353, dport=53)
        / Raw(b"q" * 20),
        Ether(src=SRC_MAC, dst=DST_MAC)
        / IPv6(src="2001:db8::1", dst="2001:db8::2")
        / UDP(sport=1000, dport=2000)
        / Raw(b"v" * 30),
    ]


def varied_frames(count):
    # Many frame kinds and lengths (a fixed seed keeps them the same from run to run): IPv4 TCP, UDP and
    # ICMP, IPv6 TCP and UDP, VLAN-tagged IPv4, ARP. Most lengths are not a multiple of 4, so most
    # sampled headers carry padding on the wire.
    rng = random.Random(20241123)
    frames = []
    for i in range(count):
        kind = rng.choice(["tcp", "tcp", "tcp", "udp", "udp", "icmp", "tcp6", "udp6", "vlan", "arp"])
        eth = Ether(src=SRC_MAC, dst=DST_MAC)
        src4 = "10.0.%d.%d" % (rng.randrange(4), rng.randrange(1, 250))
        dst4 = "10.1.%d.%d" % (rng.randrange(4), rng.randrange(1, 250))
        payload = Raw(b"p" * rng.randrange(0, 1400))
        port = rng.randrange  # source ports
        if kind == "tcp":
            tcp = TCP(sport=port(1024, 65535), dport=rng.choice([22, 80, 443, 8080]),
                      flags=rng.choice(["S", "SA", "A", "PA", "FA"]), seq=i)
            frame = eth / IP(src=src4, dst=dst4, id=i) / tcp / payload
        elif kind == "udp":
            udp = UDP(sport=port(1024, 65535), dport=rng.choice([53, 123, 514, 4789]))
            frame = eth / IP(src=src4, dst=dst4, id=i) / udp / Raw(b"u" * rng.randrange(0, 600))
        elif kind == "icmp":
            icmp = ICMP(type=rng.choice([0, 8]), id=7, seq=i)
            frame = eth / IP(src=src4, dst=dst4, id=i) / icmp / Raw(b"i" * rng.randrange(0, 120))
        elif kind in ("tcp6", "udp6"):
            src6 = "2001:db8::%x" % rng.randrange(1, 0xffff)
            ip6 = IPv6(src=src6, dst="2001:db8:1::%x" % rng.randrange(1, 0xffff))
            if kind == "tcp6":
                frame = eth / ip6 / TCP(sport=port(1024, 65535), dport=443, flags="PA") / payload
            else:
                frame = eth / ip6 / UDP(sport=port(1024, 65535), dport=53) / Raw(b"s" * rng.randrange(0, 300))
        elif kind == "vlan":
            tag = Dot1Q(vlan=rng.randrange(1, 4095), prio=rng.randrange(8))
            udp = UDP(sport=5353, dport=53)
            frame = eth / tag / IP(src=src4, dst=dst4) / udp / Raw(b"q" * rng.randrange(0, 200))
        else:
            frame = Ether(src=SRC_MAC, dst="ff:ff:ff:ff:ff:ff") / ARP(psrc=src4, pdst=dst4, hwsrc=SRC_MAC)
        frames.append(frame)
    return frames


SCENARIOS = [
    (1, tcp_frames(5)),
    (2, mixed_frames()),
    (3, varied_frames(300)),
]


def listen(sock, datagrams, stop):
    sock.settimeout(0.2)
    while not stop.is_set():
        try:
            data, _ = sock.recvfrom(65535)
            datagrams.append(data)
        except socket.timeout:
            pass


def capture(number, frames):
    start = 1700000000.0
    for i, frame in enumerate(frames):
        frame.time = start + i * 0.05
    traffic = os.path.join(HERE, "sflow_pmacct_%d_traffic.pcap" % number)
    wrpcap(traffic, frames)

    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind(("127.0.0.1", 0))
    port = sock.getsockname()[1]
    datagrams, stop = [], threading.Event()
    listener = threading.Thread(target=listen, args=(sock, datagrams, stop))
    listener.start()

    with tempfile.TemporaryDirectory() as work:
        config = os.path.join(work, "pmacctd.conf")
        with open(config, "w") as f:
            f.write(
                "daemonize: false\n"
                "plugins: sfprobe\n"
                "sfprobe_receiver: 127.0.0.1:%d\n"
                "sfprobe_agentip: 192.0.2.10\n"
                "sfprobe_agentsubid: 1402\n"
                "sampling_rate: 1\n"
                "pcap_savefile: %s\n" % (port, traffic)
            )
        # pmacctd reads the file, flushes its samples and exits.
        subprocess.run(["pmacctd", "-f", config], cwd=work, check=False, timeout=60,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    time.sleep(2)
    stop.set()
    listener.join()
    sock.close()

    if not datagrams:
        sys.exit("scenario %d: no datagram received" % number)
    if number >= 3:
        # Many datagrams: kept as UDP packets in a pcap, with tshark's reading of them.
        pcap = os.path.join(HERE, "sflow_pmacct_%d.pcap" % number)
        wrpcap(pcap, [Ether(src=SRC_MAC, dst=DST_MAC) / IP(src="127.0.0.1", dst="127.0.0.1") /
                      UDP(sport=40000, dport=6343) / Raw(d) for d in datagrams])
        print("%s: %d datagrams" % (pcap, len(datagrams)))
        subprocess.run([sys.executable, os.path.join(HERE, "sflow_tshark_expected.py"), pcap,
                        os.path.join(HERE, "sflow_pmacct_%d.expected" % number)], check=True)
        return
    for i, data in enumerate(datagrams):
        name = "sflow_pmacct_%d.bin" % number if i == 0 else "sflow_pmacct_%d_%d.bin" % (number, i)
        with open(os.path.join(HERE, name), "wb") as f:
            f.write(data)
        print("%s: %d bytes" % (name, len(data)))


if __name__ == "__main__":
    for number, frames in SCENARIOS:
        capture(number, frames)
