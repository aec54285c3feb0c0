#!/usr/bin/python3
# Writes flows.expected: tshark's reading of the flows in the real captures of this folder (the
# NetFlow v9 datagrams of softflowd, the sFlow datagrams of pmacct, the IPFIX messages of softflowd,
# softflowd with biflows and pmacct), which the flows test compares with the flow records the library
# makes of the same datagrams.
#
# Each stored datagram is wrapped in a UDP packet (scapy), tshark decodes them (-T pdml, Wireshark's
# NetFlow/IPFIX and sFlow dissectors, including the sampled packet headers), and the values of each flow
# are written out as tshark shows them, "-" where it shows none. The only arithmetic here: a flow's start
# and end in ms since 1970. NetFlow v9 and IPFIX uptimes: export - (sysUptime - uptime), the difference
# taken as a signed 32-bit number of ms, where IPFIX's sysUptime is export - the system init time that an
# options record of the same exporter announced earlier. IPFIX absolute times: tshark's UTC date.
#
# Needs tshark and python3-scapy (Debian: tshark python3-scapy). Run: /usr/bin/python3 tests/data/make_flows_expected.py
import calendar
import os
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ET

from scapy.all import IP, UDP, Ether, Raw, wrpcap

HERE = os.path.dirname(os.path.abspath(__file__))
# The datagrams of one exporter go into one capture, in order: later v9 datagrams need earlier templates.
CAPTURES = [("v9", ["v9_softflowd_1.bin", "v9_softflowd_2.bin"], 2055, "cflow"),
            ("sflow", ["sflow_pmacct_1.bin", "sflow_pmacct_2.bin"], 6343, "sflow")] + \
           [("ipfix", ["ipfix_%s_%d.bin" % (exporter, n) for n in range(1, count + 1)], 4739, "cflow")
            for exporter, count in (("softflowd", 2), ("softflowd_bidir", 3), ("pmacct", 10))]


def decode(names, port, dissector):
    """tshark's PDML packets of the stored datagrams, each wrapped in a UDP packet, in order."""
    frames = []
    for name in names:
        with open(os.path.join(HERE, name), "rb") as f:
            frames.append(Ether() / IP(src="127.0.0.1", dst="127.0.0.1") / UDP(sport=40000, dport=port) / Raw(f.read()))
    with tempfile.TemporaryDirectory() as work:
        pcap = os.path.join(work, "datagrams.pcap")
        wrpcap(pcap, frames)
        pdml = subprocess.run(["tshark", "-r", pcap, "-d", "udp.port==%d,%s" % (port, dissector), "-T", "pdml"],
                              capture_output=True, check=True).stdout
    return ET.fromstring(pdml).findall("packet")


def first(element, field):
    """The shown value of the first field of that name under element, or "-"."""
    for node in element.iter("field"):
        if node.get("name") == field:
            return node.get("show")
    return "-"


def ms(seconds_text):
    whole, _, fraction = seconds_text.partition(".")
    return int(whole) * 1000 + int((fraction + "000")[:3])


def signed32(value):
    value &= 0xFFFFFFFF
    return value - (1 << 32) if value >= 1 << 31 else value


def v9_lines(name, root):
    proto = next(p for p in root.iter("proto") if p.get("name") == "cflow")
    export_ms = int(first(proto, "cflow.unix_secs")) * 1000
    uptime_ms = ms(first(proto, "cflow.sysuptime"))
    lines = []
    for flow in proto.iter("field"):
        if not (flow.get("name") == "" and (flow.get("show") or "").startswith("Flow ")):
            continue
        if first(flow, "cflow.srcaddr") == "-" and first(flow, "cflow.srcaddr_v6") == "-":
            continue  # an options record
        src = first(flow, "cflow.srcaddr") if first(flow, "cflow.srcaddr") != "-" else first(flow, "cflow.srcaddr_v6")
        dst = first(flow, "cflow.dstaddr") if first(flow, "cflow.dstaddr") != "-" else first(flow, "cflow.dstaddr_v6")
        icmp = first(flow, "cflow.icmp_type_code_ipv4")
        if icmp == "-":
            icmp = first(flow, "cflow.icmp_type_code_ipv6")
        times = []
        for field in ("cflow.timestart", "cflow.timeend"):
            uptime = first(flow, field)
            times.append("-" if uptime == "-" else str(export_ms - signed32(uptime_ms - ms(uptime))))
        lines.append(" ".join(["v9", name, src, dst, first(flow, "cflow.srcport"), first(flow, "cflow.dstport"),
                               str(int(icmp, 16)) if icmp != "-" else "-", first(flow, "cflow.protocol"),
                               first(flow, "cflow.octets"), first(flow, "cflow.packets"),
                               first(flow, "cflow.inputint"), first(flow, "cflow.outputint")] + times))
    return lines


def date_ms(text):
    """tshark's "Nov 14, 2023 22:13:20.500000000 UTC" as ms since 1970."""
    stamp, _, fraction = text.replace(" UTC", "").partition(".")
    return calendar.timegm(time.strptime(stamp, "%b %d, %Y %H:%M:%S")) * 1000 + int((fraction + "000")[:3])


def either(element, *fields):
    """The first of the fields that tshark shows under element, or "-"."""
    for field in fields:
        value = first(element, field)
        if value != "-":
            return value
    return "-"


def hex_or_dash(text):
    return str(int(text, 16)) if text != "-" else "-"


def ipfix_lines(name, root, state):
    """state: the options template ids and the system init time of the capture's exporter so far."""
    proto = next(p for p in root.iter("proto") if p.get("name") == "cflow")
    export_ms = int(first(proto, "cflow.exporttime")) * 1000
    lines = []
    for data_set in proto:
        title = data_set.get("show") or ""
        if "(Options Template)" in title:
            state["options"].add(title.rsplit(" ", 1)[1])
        if not (data_set.get("name") == "" and title.startswith("Set ") and "flows)" in title):
            continue
        options = title.split("[id=")[1].split("]")[0] in state["options"]
        for flow in data_set:
            if not (flow.get("name") == "" and (flow.get("show") or "").startswith("Flow ")):
                continue
            if options:  # an options record: not a flow, but it may announce the init time
                if first(flow, "cflow.sys_init_time") != "-":
                    state["init_ms"] = date_ms(first(flow, "cflow.sys_init_time"))
                continue
            times = []
            for absolute, uptime in (("cflow.abstimestart", "cflow.timestart"), ("cflow.abstimeend", "cflow.timeend")):
                if first(flow, absolute) != "-":
                    times.append(str(date_ms(first(flow, absolute))))
                elif first(flow, uptime) != "-" and state["init_ms"] is not None:
                    sys_uptime = (export_ms - state["init_ms"]) & 0xFFFFFFFF
                    times.append(str(export_ms - signed32(sys_uptime - ms(first(flow, uptime)))))
                else:
                    times.append("-")
            lines.append(" ".join([
                "ipfix", name, either(flow, "cflow.srcaddr", "cflow.srcaddrv6"),
                either(flow, "cflow.dstaddr", "cflow.dstaddrv6"), first(flow, "cflow.srcport"),
                first(flow, "cflow.dstport"),
                hex_or_dash(either(flow, "cflow.icmp_type_code_ipv4", "cflow.icmp_type_code_ipv6")),
                first(flow, "cflow.protocol"), first(flow, "cflow.octets"), first(flow, "cflow.packets"),
                first(flow, "cflow.inputint"), first(flow, "cflow.outputint")] + times + [
                first(flow, "cflow.ip_version"), hex_or_dash(first(flow, "cflow.tos")),
                hex_or_dash(first(flow, "cflow.tcpflags")), either(flow, "cflow.srcmac", "cflow.post_srcmac"),
                either(flow, "cflow.dstmac", "cflow.post_dstmac"), either(flow, "cflow.vlanid", "cflow.post_vlanid"),
                first(proto, "cflow.sequence"), first(proto, "cflow.od_id")]))
    return lines


def sflow_lines(name, root):
    proto = next(p for p in root.iter("proto") if p.get("name") == "sflow")
    lines = []
    for sample in proto:
        if not (sample.get("name") == "" and (sample.get("show") or "").startswith("Flow sample")):
            continue
        tag = "-"
        for node in sample.iter("field"):
            if node.get("name") == "vlan.id":
                tag = node.get("show")
                break
        ip = next((p for p in sample.iter("proto") if p.get("name") in ("ip", "ipv6")), None)
        if ip is None:
            continue
        v6 = ip.get("name") == "ipv6"
        transport = next((p for p in sample.iter("proto") if p.get("name") in ("tcp", "udp", "icmp", "icmpv6")), None)
        tname = transport.get("name") if transport is not None else ""
        src_port = first(transport, tname + ".srcport") if tname in ("tcp", "udp") else "-"
        dst_port = first(transport, tname + ".dstport") if tname in ("tcp", "udp") else "-"
        icmp = "-"
        if tname in ("icmp", "icmpv6"):
            icmp = str(int(first(transport, tname + ".type")) * 256 + int(first(transport, tname + ".code")))
        tos = first(ip, "ipv6.tclass") if v6 else first(ip, "ip.dsfield")
        flags = first(transport, "tcp.flags") if tname == "tcp" else "-"
        lines.append(" ".join([
            "sflow", name,
            first(ip, "ipv6.src" if v6 else "ip.src"), first(ip, "ipv6.dst" if v6 else "ip.dst"),
            src_port, dst_port, icmp, first(ip, "ipv6.nxt" if v6 else "ip.proto"),
            first(sample, "sflow_245.header.frame_length"),
            first(sample, "sflow.flow_sample.input_interface"),
            first(sample, "sflow.flow_sample.output_interface_value"),
            first(sample, "sflow.flow_sample.sampling_rate"), first(sample, "sflow.flow_sample.index"),
            first(sample, "sflow_245.vlan.in"), tag,
            first(sample, "eth.src"), first(sample, "eth.dst"),
            str(int(tos, 16)), str(int(flags, 16)) if flags != "-" else "-"]))
    return lines


def main():
    lines = ["# tshark's reading of the flows in the real captures, made by make_flows_expected.py",
             "# v9 FILE SRC DST SRC_PORT DST_PORT ICMP_TYPE_CODE PROTO OCTETS PACKETS IN_IF OUT_IF START_MS END_MS",
             "# sflow FILE SRC DST SRC_PORT DST_PORT ICMP_TYPE_CODE PROTO FRAME_LENGTH IN_IF OUT_IF SAMPLING_RATE "
             "SOURCE_INDEX SWITCH_VLAN TAG_VLAN SRC_MAC DST_MAC TOS TCP_FLAGS",
             "# ipfix FILE SRC DST SRC_PORT DST_PORT ICMP_TYPE_CODE PROTO OCTETS PACKETS IN_IF OUT_IF START_MS END_MS "
             "IP_VERSION TOS TCP_FLAGS SRC_MAC DST_MAC VLAN SEQUENCE DOMAIN",
             "# \"-\" where tshark shows no value"]
    for kind, names, port, dissector in CAPTURES:
        state = {"options": set(), "init_ms": None}
        for name, packet in zip(names, decode(names, port, dissector)):
            if kind == "v9":
                lines += v9_lines(name, packet)
            elif kind == "sflow":
                lines += sflow_lines(name, packet)
            else:
                lines += ipfix_lines(name, packet, state)
    with open(os.path.join(HERE, "flows.expected"), "w") as out:
        out.write("\n".join(lines) + "\n")
    print("%d flows" % sum(1 for line in lines if not line.startswith("#")), file=sys.stderr)


if __name__ == "__main__":
    main()
