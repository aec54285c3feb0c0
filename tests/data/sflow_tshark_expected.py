#!/usr/bin/python3
"""Writes tshark's reading of sFlow version 5 datagrams as an expectations file.

    sflow_tshark_expected.py DATAGRAMS.pcap OUT.expected

DATAGRAMS.pcap holds the datagrams as UDP packets to port 6343. tshark (Wireshark's sFlow dissector, run as
a black box) decodes them with -T json; every sFlow field value it shows for the datagram header, each
sample and each record goes to one line of OUT.expected:

    datagram D field=value ...
    sample D.S read=HOW field=value ...
    record D.S.R field=value ...

tshark 4.0 does not skip the body of a record whose format it does not know (Open vSwitch sends several),
so what follows such a record in its datagram reads as garbage, sometimes without a malformed-packet
mark. For a datagram with such a record before its end (or marked malformed) each sample is given to
tshark again alone, in a copy of the datagram whose header announces one sample (read=sample); within a
sample that still has such a record before its end, each record alone, in a copy of its sample that
announces one record (read=record). Samples and records of datagrams tshark reads whole are taken from
that reading (read=datagram); the script checks that reading one sample alone gives the same fields.
"""

import json
import os
import struct
import subprocess
import sys
import tempfile

from scapy.all import IP, UDP, Ether, Raw, rdpcap, wrpcap

# Sample tag -> bytes of sample fields before the record count (flow, counters, expanded flow, expanded
# counters).
FIELDS_BEFORE_COUNT = {1: 28, 2: 8, 3: 40, 4: 12}


def word(data, at):
    return struct.unpack(">I", data[at:at + 4])[0]


def header_length(data):
    address = 4 if word(data, 4) == 1 else 16
    return 8 + address + 16


def samples_of(data):
    """The bytes of each sample of a datagram: tag, length, body."""
    at, result = header_length(data), []
    for _ in range(word(data, at - 4)):
        length = word(data, at + 4)
        result.append(data[at:at + 8 + length])
        at += 8 + length
    return result


def with_one_sample(data, sample):
    head = header_length(data)
    return data[:head - 4] + struct.pack(">I", 1) + sample


def with_one_record(sample, index):
    """A copy of a sample holding only its record number index."""
    tag, body = word(sample, 0), sample[8:]
    before = FIELDS_BEFORE_COUNT[tag & 0xFFF]
    at = before + 4
    for _ in range(index):
        at += 8 + word(body, at + 4)
    record = body[at:at + 8 + word(body, at + 4)]
    new_body = body[:before] + struct.pack(">I", 1) + record
    return struct.pack(">II", tag, len(new_body)) + new_body


def tshark_json(payloads, work):
    path = os.path.join(work, "in.pcap")
    wrpcap(path, [Ether() / IP(src="127.0.0.1", dst="127.0.0.1") / UDP(sport=40000, dport=6343) / Raw(p)
                  for p in payloads])
    out = subprocess.run(["tshark", "-r", path, "-T", "json", "-d", "udp.port==6343,sflow"],
                         capture_output=True, text=True, check=True).stdout
    # Keep every key: samples of one datagram may share a name.
    return json.loads(out, object_pairs_hook=lambda pairs: pairs)


def layers(frame):
    return dict(dict(dict(frame)["_source"])["layers"])


def readable(frame):
    """Whether tshark's reading of a datagram can be trusted: not malformed, and no record that tshark does
    not know followed by anything (tshark 4.0 does not skip such a record's body)."""
    if "_ws.malformed" in layers(frame):
        return False
    samples = named_children(dict(layers(frame))["sflow"])
    named = [key for _, sample in samples for key, _ in named_children(sample)]
    return all(key != "Unknown sample format" for key in named[:-1])


def is_node(value):
    return isinstance(value, list) and (not value or isinstance(value[0], tuple))


def leaves(node):
    """The node's own field values (subtrees left out, except interface words split into format/value)."""
    result = []
    for key, value in node:
        if is_node(value):
            if key.endswith("_interface_tree"):
                result += leaves(value)
            continue
        if isinstance(value, list):  # a field shown more than once
            value = ",".join(value)
        result.append((key, value))
    return result


def named_children(node):
    return [(key, value) for key, value in node if is_node(value) and not key.endswith("_tree")]


def children(node):
    return [value for _, value in named_children(node)]


def fields_text(fields):
    parts = []
    for key, value in fields:
        if " " in value or "=" in key:
            raise SystemExit("unexpected text in field %s=%r" % (key, value))
        parts.append("%s=%s" % (key, value))
    return " ".join(parts)


def main():
    source, target = sys.argv[1], sys.argv[2]
    payloads = [bytes(p[UDP].payload) for p in rdpcap(source)]
    lines = ["# tshark's reading of %s, made by sflow_tshark_expected.py" % os.path.basename(source),
             "# datagram D / sample D.S read=datagram|sample|record / record D.S.R, "
             "then tshark's field=value"]
    with tempfile.TemporaryDirectory() as work:
        whole = tshark_json(payloads, work)
        alone = tshark_json([with_one_sample(d, s) for d in payloads for s in samples_of(d)], work)
        alone_at = 0
        for d, (data, frame) in enumerate(zip(payloads, whole), 1):
            sflow = dict(layers(frame))["sflow"]
            lines.append("datagram %d %s" % (d, fields_text(leaves(sflow))))
            whole_samples = children(sflow)
            for s, sample in enumerate(samples_of(data), 1):
                one = alone[alone_at]
                alone_at += 1
                one_sample = children(dict(layers(one))["sflow"])[0]
                if readable(frame):
                    if leaves(whole_samples[s - 1]) != leaves(one_sample):
                        raise SystemExit("datagram %d sample %d reads differently alone" % (d, s))
                    read, node, records = "datagram", whole_samples[s - 1], children(whole_samples[s - 1])
                elif readable(one):
                    read, node, records = "sample", one_sample, children(one_sample)
                else:
                    read, node = "record", one_sample
                    count = word(sample, 8 + FIELDS_BEFORE_COUNT[word(sample, 0) & 0xFFF])
                    copies = [with_one_sample(data, with_one_record(sample, r)) for r in range(count)]
                    singles = tshark_json(copies, work)
                    records = [children(children(dict(layers(f))["sflow"])[0])[0] for f in singles]
                lines.append("sample %d.%d read=%s %s" % (d, s, read, fields_text(leaves(node))))
                for r, record in enumerate(records, 1):
                    lines.append("record %d.%d.%d %s" % (d, s, r, fields_text(leaves(record))))
    with open(target, "w") as f:
        f.write("\n".join(lines) + "\n")
    print("%s: %d datagrams" % (target, len(payloads)))


if __name__ == "__main__":
    main()
