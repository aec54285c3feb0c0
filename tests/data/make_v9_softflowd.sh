#!/bin/bash
# Makes the real-exporter NetFlow v9 samples v9_softflowd_*.bin, the traffic they describe
# (v9_softflowd_traffic.pcap) and their expectations (v9_softflowd.expected).
#
# softflowd (run as a black box) reads a small pcap made with scapy and exports v9 to a UDP listener on
# loopback, which stores each datagram's payload. tshark then decodes the same datagrams, and its
# header and flow values go to v9_softflowd.expected for the decoder test to compare with.
# Needs: softflowd, tshark, python3 with scapy (Debian: softflowd tshark python3-scapy).
set -euo pipefail

out_dir=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'kill "${sf_pid:-}" "${listener_pid:-}" 2>/dev/null || true; rm -rf "$work"' EXIT
cd "$work"
port=${V9_SAMPLE_PORT:-39555}
python=${PYTHON:-/usr/bin/python3}

# 1. Traffic with known flows: UDP 10.1.1.1:5353 -> 10.2.2.2:53 (3 packets, 174 IP bytes), TCP
#    10.1.1.3:40000 -> 10.2.2.4:80 (5 packets, 500 bytes), ICMP echo 10.1.1.5 -> 10.2.2.6 (2 packets,
#    168 bytes), and 40 one-packet UDP flows 10.9.9.N:(999+N) -> 10.9.9.100:9 (29 bytes each), enough
#    for softflowd to fill more than one export datagram.
"$python" - <<'PY'
from scapy.all import Ether, IP, UDP, TCP, ICMP, Raw, wrpcap
packets = []
t0 = 1700000000.0
def add(p, t):
    p.time = t
    packets.append(p)
eth = lambda: Ether(src="02:00:00:00:00:01", dst="02:00:00:00:00:02")
for i in range(3):
    add(eth() / IP(src="10.1.1.1", dst="10.2.2.2") / UDP(sport=5353, dport=53) / Raw(b"x" * (20 + 10 * i)), t0 + i)
for i, flags in enumerate(["S", "A", "PA", "PA", "FA"]):
    add(eth() / IP(src="10.1.1.3", dst="10.2.2.4") / TCP(sport=40000, dport=80, flags=flags) /
        Raw(b"y" * (0 if i < 2 else 100)), t0 + 0.5 + i)
for i in range(2):
    add(eth() / IP(src="10.1.1.5", dst="10.2.2.6") / ICMP(type=8, code=0) / Raw(b"z" * 56), t0 + 1 + i)
for n in range(1, 41):
    add(eth() / IP(src="10.9.9.%d" % n, dst="10.9.9.100") / UDP(sport=999 + n, dport=9) / Raw(b"f"), t0 + 10 + n)
packets.sort(key=lambda p: p.time)
wrpcap("traffic.pcap", packets)
PY

# 2. A listener that keeps every datagram's payload.
"$python" - "$port" <<'PY' &
import socket, sys
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(("127.0.0.1", int(sys.argv[1])))
s.settimeout(5)
n = 0
try:
    while True:
        data, _ = s.recvfrom(65535)
        n += 1
        open("datagram_%d.bin" % n, "wb").write(data)
except socket.timeout:
    pass
PY
listener_pid=$!
sleep 0.5

# 3. softflowd reading the pcap. This version serves its control socket between packets, so poke it
#    with status requests until it has read the file and exported everything.
softflowd -r traffic.pcap -n 127.0.0.1:"$port" -v 9 -d -c "$work/sf.ctl" -p "$work/sf.pid" >softflowd.log 2>&1 &
sf_pid=$!
for _ in $(seq 1 200); do
    kill -0 "$sf_pid" 2>/dev/null || break
    softflowctl -c "$work/sf.ctl" statistics >/dev/null 2>&1 || true
    sleep 0.05
done
wait "$sf_pid" || true
wait "$listener_pid" || true
ls datagram_*.bin >/dev/null

# 4. Store the payloads and tshark's reading of them.
rm -f "$out_dir"/v9_softflowd_*.bin
cp traffic.pcap "$out_dir/v9_softflowd_traffic.pcap"
"$python" - "$out_dir" <<'PY'
import glob, re, subprocess, sys
from scapy.all import Ether, IP, UDP, Raw, wrpcap
out_dir = sys.argv[1]
names = sorted(glob.glob("datagram_*.bin"), key=lambda n: int(re.findall(r"\d+", n)[0]))
frames = []
for i, name in enumerate(names, 1):
    data = open(name, "rb").read()
    open("%s/v9_softflowd_%d.bin" % (out_dir, i), "wb").write(data)
    frames.append(Ether() / IP(src="127.0.0.1", dst="127.0.0.1") / UDP(sport=40000, dport=2055) / Raw(data))
wrpcap("export.pcap", frames)
text = subprocess.run(["tshark", "-r", "export.pcap", "-d", "udp.port==2055,cflow", "-V"],
                      capture_output=True, text=True, check=True).stdout
lines = ["# tshark's reading of v9_softflowd_N.bin, made by make_v9_softflowd.sh",
         "# datagram N version count sysUptimeMs unixSecs sequence sourceId",
         "# flow N srcAddr dstAddr srcPort dstPort protocol octets packets (ports 0 when absent)",
         "# options N samplingInterval ifName"]
frame = 0
flow = None
def flush():
    if flow is not None and "SrcAddr" not in flow:
        lines.append("options %d %s %s" % (frame, flow.get("Sampling interval"), flow.get("IfName")))
    elif flow is not None:
        lines.append("flow %d %s %s %s %s %s %s %s" % (frame, flow.get("SrcAddr"), flow.get("DstAddr"),
                     flow.get("SrcPort", "0"), flow.get("DstPort", "0"), flow.get("Protocol"),
                     flow.get("Octets"), flow.get("Packets")))
header = {}
for line in text.splitlines():
    s = line.strip()
    if line.startswith("Frame "):
        flush(); flow = None
        frame += 1
        header = {}
        continue
    m = re.match(r"(Version|Count|SysUptime|CurrentSecs|FlowSequence|SourceId): (\S+)", s)
    if m and flow is None and len(header) < 6:
        header[m.group(1)] = m.group(2)
        if len(header) == 6:
            ms = round(float(header["SysUptime"]) * 1000)
            lines.append("datagram %d %s %s %d %s %s %s" % (frame, header["Version"], header["Count"], ms,
                         header["CurrentSecs"], header["FlowSequence"], header["SourceId"]))
        continue
    if re.match(r"Flow \d+$", s):
        flush()
        flow = {}
        continue
    if s.startswith("FlowSet "):
        flush(); flow = None
        continue
    if flow is not None:
        m = re.match(r"(SrcAddr|DstAddr|SrcPort|DstPort|Octets|Packets|Sampling interval|IfName): (\S+)", s)
        if m:
            flow[m.group(1)] = m.group(2)
        m = re.match(r"Protocol: .*\((\d+)\)", s)
        if m:
            flow["Protocol"] = m.group(1)
flush()
open("%s/v9_softflowd.expected" % out_dir, "w").write("\n".join(lines) + "\n")
print("%d datagrams" % len(names))
PY
