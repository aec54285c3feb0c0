#!/bin/bash
# Makes the real-exporter IPFIX samples ipfix_<exporter>_N.bin, the traffic they describe
# (ipfix_traffic.pcap) and tshark's reading of them (ipfix_<exporter>.expected).
#
# Three exporters, each run as a black box on loopback, read one pcap made with scapy and export IPFIX
# to a UDP listener that stores each datagram's payload:
#   softflowd        softflowd -v 10
#   softflowd_bidir  softflowd -v 10 -b -T ether -A milli (biflows with reverse elements, PEN 29305;
#                    VLAN and MAC addresses; absolute millisecond times)
#   pmacct           pmacctd with its nfprobe plugin at version 10, a label from a pre_tag_map (pmacct's
#                    variable-length enterprise element 43874/3) and a custom primitive exported as the
#                    fixed-length enterprise element 43874/501 (the first 4 bytes of the layer 4 header)
# tshark (-T pdml, Wireshark's NetFlow/IPFIX dissector) then decodes the stored datagrams wrapped in UDP
# packets, and its header, templates and every field of every data record go to the .expected files.
# Installs what it needs when missing (Debian: softflowd pmacct tshark python3-scapy).
set -euo pipefail

out_dir=$(cd "$(dirname "$0")" && pwd)
python=${PYTHON:-/usr/bin/python3}
missing=()
command -v softflowd >/dev/null || missing+=(softflowd)
command -v pmacctd >/dev/null || missing+=(pmacct)
command -v tshark >/dev/null || missing+=(tshark)
"$python" -c 'import scapy' 2>/dev/null || missing+=(python3-scapy)
if [ ${#missing[@]} -gt 0 ]; then
    apt-get install -y "${missing[@]}"
fi

work=$(mktemp -d)
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
cd "$work"

# 1. Traffic with known flows: UDP 10.1.1.1:5353 -> 10.2.2.2:53 with DSCP 46 (3 packets), TCP
#    10.1.1.3:40000 -> 10.2.2.4:80 (5 packets), ICMP echo 10.1.1.5 -> 10.2.2.6 (2 packets), UDP over IPv6
#    2001:db8::1:1000 -> 2001:db8::2:2000 (2 packets), a VLAN 42 tagged UDP flow 10.3.3.3:7 -> 10.4.4.4:9,
#    and 40 one-packet UDP flows 10.9.9.N:(999+N) -> 10.9.9.100:9, enough for several datagrams.
"$python" - <<'PY'
from scapy.all import Ether, IP, IPv6, UDP, TCP, ICMP, Dot1Q, Raw, wrpcap
packets = []
t0 = 1700000000.0
def add(p, t):
    p.time = t
    packets.append(p)
eth = lambda: Ether(src="02:00:00:00:00:01", dst="02:00:00:00:00:02")
for i in range(3):
    add(eth() / IP(src="10.1.1.1", dst="10.2.2.2", tos=0xb8) / UDP(sport=5353, dport=53) / Raw(b"x" * (20 + 10 * i)), t0 + i)
for i, flags in enumerate(["S", "A", "PA", "PA", "FA"]):
    add(eth() / IP(src="10.1.1.3", dst="10.2.2.4") / TCP(sport=40000, dport=80, flags=flags) /
        Raw(b"y" * (0 if i < 2 else 100)), t0 + 0.5 + i)
for i in range(2):
    add(eth() / IP(src="10.1.1.5", dst="10.2.2.6") / ICMP(type=8, code=0) / Raw(b"z" * 56), t0 + 1 + i)
for i in range(2):
    add(eth() / IPv6(src="2001:db8::1", dst="2001:db8::2") / UDP(sport=1000, dport=2000) / Raw(b"v" * 30), t0 + 2 + i)
add(eth() / Dot1Q(vlan=42, prio=5) / IP(src="10.3.3.3", dst="10.4.4.4") / UDP(sport=7, dport=9) / Raw(b"q" * 20), t0 + 3)
for n in range(1, 41):
    add(eth() / IP(src="10.9.9.%d" % n, dst="10.9.9.100") / UDP(sport=999 + n, dport=9) / Raw(b"f"), t0 + 10 + n)
packets.sort(key=lambda p: p.time)
wrpcap("traffic.pcap", packets)
PY

# A listener that keeps every datagram's payload for a number of seconds: listen PORT PREFIX SECONDS.
listen() {
    "$python" - "$@" <<'PY'
import socket, sys, time
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(("127.0.0.1", int(sys.argv[1])))
s.settimeout(0.2)
end = time.time() + float(sys.argv[3])
n = 0
while time.time() < end:
    try:
        data, _ = s.recvfrom(65535)
    except socket.timeout:
        continue
    n += 1
    open("%s_%d.bin" % (sys.argv[2], n), "wb").write(data)
PY
}

# A free UDP port on loopback.
free_port() {
    "$python" -c 'import socket; s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# 2. softflowd, twice. This version serves its control socket between packets when reading a file, so
#    poke it with status requests until it has read the file and exported everything.
run_softflowd() { # NAME OPTIONS...
    local name=$1
    shift
    local port
    port=$(free_port)
    listen "$port" "$name" 8 &
    local listener=$!
    sleep 0.5
    softflowd -r traffic.pcap -n 127.0.0.1:"$port" "$@" -d -c "$work/$name.ctl" -p "$work/$name.pid" \
        >"$name.log" 2>&1 &
    local sf=$!
    for _ in $(seq 1 200); do
        kill -0 "$sf" 2>/dev/null || break
        softflowctl -c "$work/$name.ctl" statistics >/dev/null 2>&1 || true
        sleep 0.05
    done
    wait "$sf" || true
    wait "$listener"
}
run_softflowd softflowd -v 10
run_softflowd softflowd_bidir -v 10 -b -T ether -A milli

# 3. pmacctd with nfprobe. It exports flows as they expire (1 s timeouts) and the rest when it is
#    interrupted, after it has read the file.
port=$(free_port)
cat >pretag.map <<'EOF'
set_label=gold filter='udp'
set_label=silver-class filter='tcp'
EOF
cat >primitives.lst <<'EOF'
name=l4head field_type=43874:501 len=4 semantics=hex packet_ptr=l4:0
EOF
cat >pmacctd.conf <<EOF
daemonize: false
plugins: nfprobe
nfprobe_receiver: 127.0.0.1:$port
nfprobe_version: 10
nfprobe_engine: 7
nfprobe_timeouts: tcp=1:tcp.rst=1:tcp.fin=1:udp=1:icmp=1:general=1:maxlife=1:expint=1
pre_tag_map: $work/pretag.map
aggregate_primitives: $work/primitives.lst
aggregate: src_mac, dst_mac, vlan, src_host, dst_host, src_port, dst_port, proto, tos, tcpflags, label, l4head
pcap_savefile: $work/traffic.pcap
pcap_savefile_wait: true
EOF
listen "$port" pmacct 14 &
listener=$!
sleep 0.5
pmacctd -f pmacctd.conf >pmacct.log 2>&1 &
pm=$!
sleep 5
kill -INT "$pm"
wait "$pm" || true
wait "$listener"

# 4. Store the payloads and tshark's reading of them.
cp traffic.pcap "$out_dir/ipfix_traffic.pcap"
rm -f "$out_dir"/ipfix_softflowd_[0-9]*.bin "$out_dir"/ipfix_softflowd_bidir_[0-9]*.bin \
    "$out_dir"/ipfix_pmacct_[0-9]*.bin
"$python" - "$out_dir" softflowd softflowd_bidir pmacct <<'PY'
import glob, re, subprocess, sys
import xml.etree.ElementTree as ET
from scapy.all import Ether, IP, UDP, Raw, wrpcap

out_dir = sys.argv[1]
PAYLOAD = 42  # Ethernet, IPv4 and UDP headers in front of each datagram

def children(element):
    return [c for c in element if c.tag == "field"]

def named(element, name):
    for c in children(element):
        if c.get("name") == name:
            return c
    return None

def record_fields(flow, flowset):
    # The fields of one data record in wire order, as (position, field): sized fields with a value; a
    # zero-size grouping (tshark's flow duration) stands for the fields inside it. tshark gives some
    # fields (the flow end time) a position that does not hold their value; such a field is placed in
    # the first gap from the record's start that no other field covers and whose bytes are its value.
    fields = []
    for c in children(flow):
        if int(c.get("size", "0")) > 0 and c.get("value") is not None:
            fields.append(c)
        elif c.get("size") == "0":
            fields.extend(g for g in children(c) if int(g.get("size", "0")) > 0 and g.get("value") is not None)
    start = int(flow.get("pos"))
    size = int(flowset.get("pos")) + int(flowset.get("size")) - start
    record = bytes.fromhex(flowset.get("value"))[start - int(flowset.get("pos")):]
    placed, astray = [], []
    covered = [False] * size
    for f in fields:
        pos, length = int(f.get("pos")), int(f.get("size"))
        if start <= pos and pos + length <= start + size and \
                record[pos - start:pos - start + length] == bytes.fromhex(f.get("value")):
            placed.append((pos, f))
            for k in range(pos - start, pos - start + length):
                covered[k] = True
        else:
            astray.append(f)
    for f in astray:
        length, value = int(f.get("size")), bytes.fromhex(f.get("value"))
        for k in range(0, size - length + 1):
            if not any(covered[k:k + length]) and record[k:k + length] == value:
                placed.append((start + k, f))
                for j in range(k, k + length):
                    covered[j] = True
                break
        else:
            sys.exit("cannot place %s in a record at %d" % (f.get("name"), start))
    return sorted(placed, key=lambda p: p[0])

for name in sys.argv[2:]:
    datagrams = sorted(glob.glob(name + "_[0-9]*.bin"), key=lambda n: int(re.findall(r"_(\d+)\.bin$", n)[0]))
    if not datagrams:
        sys.exit("%s: no datagram received" % name)
    frames = []
    for i, path in enumerate(datagrams, 1):
        data = open(path, "rb").read()
        open("%s/ipfix_%s_%d.bin" % (out_dir, name, i), "wb").write(data)
        frames.append(Ether() / IP(src="127.0.0.1", dst="127.0.0.1") / UDP(sport=40000, dport=4739) / Raw(data))
    wrpcap(name + ".pcap", frames)
    pdml = subprocess.run(["tshark", "-r", name + ".pcap", "-d", "udp.port==4739,cflow", "-T", "pdml"],
                          capture_output=True, text=True, check=True).stdout
    lines = ["# tshark's reading of ipfix_%s_N.bin (tshark -T pdml), made by make_ipfix_captures.sh" % name,
             "# message N version length exportTime sequence observationDomainId",
             "# template N templateId scopeFieldCount elementId/enterprise/length ... (enterprise 0: IANA)",
             "# record N setId",
             "# field offset size valueHex tsharkField tsharkText (offset from the datagram's start)"]
    for n, packet in enumerate(ET.fromstring(pdml).iter("packet"), 1):
        proto = [p for p in packet if p.get("name") == "cflow"][0]
        value = lambda f: named(proto, f).get("show")
        lines.append("message %d %s %s %s %s %s" % (n, value("cflow.version"), value("cflow.len"),
                     named(named(proto, "cflow.timestamp"), "cflow.exporttime").get("show"),
                     value("cflow.sequence"), value("cflow.od_id")))
        for flowset in children(proto):
            if named(flowset, "cflow.flowset_id") is None:
                continue
            set_id = int(named(flowset, "cflow.flowset_id").get("show"))
            for item in children(flowset):
                show = item.get("show", "")
                if item.get("name") != "":
                    continue
                if show.startswith("Template (") or show.startswith("Options Template ("):
                    scope = named(item, "cflow.template_ipfix_scope_field_count")
                    fields = []
                    for field in children(item):
                        if not field.get("show", "").startswith("Field ("):
                            continue
                        element = named(field, "cflow.template_ipfix_field_type")
                        if element is None:
                            element = named(field, "cflow.template_ipfix_field_type_enterprise")
                        pen = named(field, "cflow.template_ipfix_field_pen")
                        fields.append("%s/%s/%s" % (element.get("show"), pen.get("show") if pen is not None else "0",
                                                   named(field, "cflow.template_field_length").get("show")))
                    lines.append("template %d %s %s %s" % (n, named(item, "cflow.template_id").get("show"),
                                 scope.get("show") if scope is not None else "0", " ".join(fields)))
                elif re.match(r"Flow \d+$", show):
                    lines.append("record %d %d" % (n, set_id))
                    for pos, f in record_fields(item, flowset):
                        lines.append("field %d %s %s %s %s" % (pos - PAYLOAD, f.get("size"),
                                     f.get("value"), f.get("name"), f.get("show")))
    open("%s/ipfix_%s.expected" % (out_dir, name), "w").write("\n".join(lines) + "\n")
    print("%s: %d datagrams" % (name, len(datagrams)))
PY
