#!/usr/bin/python3
"""Captures sFlow version 5 datagrams from Open vSwitch, run as a black box: a private ovsdb-server and
ovs-vswitchd with a userspace bridge (datapath_type=netdev) between two network namespaces, every packet
sampled, interface counters polled every second. Traffic made here crosses the bridge; the agent sends to
a UDP listener on 127.0.0.1, which keeps each datagram. Run as root from any directory:

    /usr/bin/python3 tests/data/sflow_ovs_gen.py

Writes sflow_ovs.pcap (the datagrams as UDP packets to port 6343) and, through sflow_tshark_expected.py,
sflow_ovs.expected (tshark's reading of them). Needs openvswitch-switch, tshark and ethtool (installed
with apt-get when missing), python3-scapy and iproute2. Uptimes, sequence numbers and counters differ
from run to run; the expectations file follows them.
"""

import os
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

HERE = os.path.dirname(os.path.abspath(__file__))
NS_A, NS_B = "tpnf-sfa", "tpnf-sfb"
PORT_A, PORT_B, BRIDGE = "tpnfsfa0", "tpnfsfb0", "tpnfsfbr"
IP_A, IP_B = "10.77.0.1", "10.77.0.2"
IP6_A, IP6_B = "fd00:77::1", "fd00:77::2"


def run(*args, check=True):
    return subprocess.run(list(args), check=check, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def in_ns(ns, script, *args):
    command = ["ip", "netns", "exec", ns, sys.executable, "-c", script, *args]
    return subprocess.run(command, check=True, timeout=60)


def listen(sock, datagrams, stop):
    sock.settimeout(0.2)
    while not stop.is_set():
        try:
            datagrams.append(sock.recvfrom(65535)[0])
        except socket.timeout:
            pass


def set_up_namespaces():
    for ns, port, peer, mac, ip4, ip6 in ((NS_A, PORT_A, "tpnfsfa1", "02:00:00:00:0a:01", IP_A, IP6_A),
                                          (NS_B, PORT_B, "tpnfsfb1", "02:00:00:00:0b:01", IP_B, IP6_B)):
        run("ip", "netns", "add", ns)
        run("ip", "link", "add", port, "type", "veth", "peer", "name", peer)
        run("ip", "link", "set", peer, "netns", ns)
        run("ip", "link", "set", port, "up")
        run("ip", "-n", ns, "link", "set", peer, "address", mac)
        run("ip", "-n", ns, "addr", "add", ip4 + "/24", "dev", peer)
        run("ip", "-n", ns, "addr", "add", ip6 + "/64", "dev", peer, "nodad")
        run("ip", "-n", ns, "link", "set", peer, "up")
        run("ip", "-n", ns, "link", "set", "lo", "up")
        # The userspace datapath forwards frames as they are: checksums must be complete when sent.
        run("ip", "netns", "exec", ns, "ethtool", "-K", peer, "tx", "off")


def tear_down_namespaces():
    for port in (PORT_A, PORT_B):
        run("ip", "link", "del", port, check=False)
    for ns in (NS_A, NS_B):
        run("ip", "netns", "del", ns, check=False)
    # The userspace datapath leaves its tap devices behind.
    for tap in (BRIDGE, "ovs-netdev"):
        run("ip", "tuntap", "del", "dev", tap, "mode", "tap", check=False)


SERVER = """
import socket
s = socket.socket(); s.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
s.bind(("%s", 8080)); s.listen(1); s.settimeout(30)
c, _ = s.accept()
while True:
    data = c.recv(4096)
    if not data:
        break
    c.sendall(data[: len(data) // 2 + 1])
c.close()
""" % IP_B

TRAFFIC = """
import socket, struct, sys, time
b, b6 = sys.argv[1], sys.argv[2]

def checksum(data):
    data += b"\\0" * (len(data) % 2)
    total = sum(struct.unpack(">%dH" % (len(data) // 2), data))
    total = (total >> 16) + (total & 0xFFFF)
    return ~(total + (total >> 16)) & 0xFFFF

# UDP datagrams of many lengths (most frame lengths are not a multiple of 4); no one listens, so b
# answers with ICMP port unreachable.
u = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
for i in range(40):
    u.sendto(b"u" * (i * 7), (b, 5000 + i))
    time.sleep(0.01)
# A TCP connection carrying messages of several lengths.
t = socket.create_connection((b, 8080), timeout=10)
for n in (1, 2, 3, 100, 333, 1000, 1400, 5):
    t.sendall(b"t" * n)
    t.recv(4096)
t.close()
# ICMP echo requests of several lengths.
r = socket.socket(socket.AF_INET, socket.SOCK_RAW, socket.IPPROTO_ICMP)
for n in (0, 1, 56, 57, 58, 59):
    body = struct.pack(">BBHHH", 8, 0, 0, 7, n) + b"e" * n
    r.sendto(body[:2] + struct.pack(">H", checksum(body)) + body[4:], (b, 0))
    time.sleep(0.01)
# IPv6 UDP datagrams.
v = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
for i in range(10):
    v.sendto(b"6" * (i * 13), (b6, 6000 + i))
    time.sleep(0.01)
"""


def install_tools():
    needed = {"ovs-vswitchd": "openvswitch-switch", "tshark": "tshark", "ethtool": "ethtool"}
    missing = [package for tool, package in needed.items() if shutil.which(tool) is None]
    if missing:
        subprocess.run(["apt-get", "install", "-y"] + missing, check=True,
                       env=dict(os.environ, DEBIAN_FRONTEND="noninteractive"))


def main():
    if os.geteuid() != 0:
        sys.exit("run as root: namespaces and a userspace bridge are made")
    install_tools()
    work = tempfile.mkdtemp(prefix="tpnf-ovs-")
    env = dict(os.environ, OVS_RUNDIR=work, OVS_LOGDIR=work, OVS_DBDIR=work)
    db, sock_path = os.path.join(work, "conf.db"), os.path.join(work, "db.sock")
    vsctl = ["ovs-vsctl", "--db=unix:" + sock_path]
    processes = []
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.bind(("127.0.0.1", 0))
    datagrams, stop = [], threading.Event()
    listener = threading.Thread(target=listen, args=(sock, datagrams, stop))
    try:
        run("ovsdb-tool", "create", db, "/usr/share/openvswitch/vswitch.ovsschema")
        processes.append(subprocess.Popen(
            ["ovsdb-server", db, "--remote=punix:" + sock_path, "--unixctl=" + os.path.join(work, "db.ctl"),
             "--log-file=" + os.path.join(work, "ovsdb.log")], env=env, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL))
        for _ in range(50):
            if os.path.exists(sock_path):
                break
            time.sleep(0.1)
        subprocess.run(vsctl + ["--no-wait", "init"], check=True, env=env)
        processes.append(subprocess.Popen(
            ["ovs-vswitchd", "unix:" + sock_path, "--unixctl=" + os.path.join(work, "vswitchd.ctl"),
             "--log-file=" + os.path.join(work, "vswitchd.log")], env=env, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL))
        set_up_namespaces()
        subprocess.run(vsctl + ["add-br", BRIDGE, "--", "set", "bridge", BRIDGE, "datapath_type=netdev"],
                       check=True, env=env)
        for port in (PORT_A, PORT_B):
            subprocess.run(vsctl + ["add-port", BRIDGE, port], check=True, env=env)
        listener.start()
        target = '"127.0.0.1:%d"' % sock.getsockname()[1]
        sflow = ["agent=lo", "target=" + target, "header=128", "sampling=1", "polling=1"]
        subprocess.run(vsctl + ["--", "--id=@s", "create", "sflow"] + sflow + ["--", "set", "bridge", BRIDGE,
                                                                              "sflow=@s"], check=True, env=env)
        time.sleep(2)
        processes.append(subprocess.Popen(["ip", "netns", "exec", NS_B, sys.executable, "-c", SERVER]))
        time.sleep(0.5)
        in_ns(NS_A, TRAFFIC, IP_B, IP6_B)
        processes[-1].wait(timeout=30)
        time.sleep(3)  # counter samples
    finally:
        stop.set()
        if listener.is_alive():
            listener.join()
        sock.close()
        for p in reversed(processes):
            if p.poll() is None:
                p.terminate()
            p.wait(timeout=10)
        tear_down_namespaces()
        run("rm", "-rf", work)
    if not datagrams:
        sys.exit("no datagram received")

    from scapy.all import IP, UDP, Ether, Raw, wrpcap
    pcap = os.path.join(HERE, "sflow_ovs.pcap")
    udp = Ether(src="02:00:00:00:00:01", dst="02:00:00:00:00:02") / IP(src="127.0.0.1", dst="127.0.0.1") / UDP(
        sport=40000, dport=6343)
    wrpcap(pcap, [udp / Raw(d) for d in datagrams])
    print("%s: %d datagrams" % (pcap, len(datagrams)))
    subprocess.run([sys.executable, os.path.join(HERE, "sflow_tshark_expected.py"), pcap,
                    os.path.join(HERE, "sflow_ovs.expected")], check=True)


if __name__ == "__main__":
    main()
