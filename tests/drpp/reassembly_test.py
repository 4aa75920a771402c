#!/usr/bin/python3
"""The pre-processing library on its own, against tshark as the reference.

Streams of fragmented UDP datagrams, SOME/IP TP messages and TCP segments
from scapy (out of order within the window, duplicated, with a part missing,
overlapping) go through the library (ctypes, one record per call, as the
replay wrapper feeds it); what leaves is written as a pcap that tshark
reassembles. Every message that leaves must come out of tshark byte for
byte, no part of a message that could not complete may leave, the
statistics must count every drop, and everything else must leave unchanged
and in time order.

    reassembly_test.py <libNxDRPreProcessing.so> [unittest options]
    reassembly_test.py --fuzz-seeds <folder>    (the fuzz target's seed corpus)
"""
import collections
import ctypes
import itertools
import os
import random
import struct
import subprocess
import sys
import tempfile
import unittest

import logging
logging.getLogger("scapy.runtime").setLevel(logging.ERROR)
from scapy.all import IP, TCP, UDP, Dot1Q, Dot1AD, Ether, Raw, fragment  # noqa: E402

LIBRARY = None
GENERIC, SOMEIP, TCP_PROTOCOL, UDP_PROTOCOL = 4, 1, 2, 3
NO_ERROR, NOT_REACHED, BUFFER_FULL = 0, 4, 6
MARK, MARK_CLOSING = 0x4E584500, 0x4E584501
SOMEIP_PORT = 30501
FILL, DEPTH = 10, 1000  # what the replay wrapper passes
# Tools run without what a sanitizer build preloads into this interpreter.
TOOL_ENVIRONMENT = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
TSHARK = ["tshark", "-n", "-o", "ip.defragment:TRUE", "-o", "someip.reassemble_tp:TRUE",
          "-d", f"udp.port=={SOMEIP_PORT},someip", "-o", "tcp.analyze_sequence_numbers:TRUE"]


# ---- records ---------------------------------------------------------------

def record(frame, time):
    size = 56 + max(0, (len(frame) - 8 + 7) // 8 * 8)
    head = struct.pack("<IIIIQQIIII", MARK, 0, 0, size, time, 0, 3, len(frame), 0, 0)
    return head + frame + bytes(size - 48 - len(frame))


def closing():
    return struct.pack("<IIIIQQIIII", MARK_CLOSING, 0, 0, 56, 0, 0, 3, 0, 0, 0) + bytes(8)


def split(block):
    """(time, frame, closing) for each record of a block."""
    out, at = [], 0
    while at < len(block):
        mark, size, time, _, length = struct.unpack_from("<IxxxxxxxxIQxxxxxxxxII", block, at)
        assert mark in (MARK, MARK_CLOSING), f"bad mark at {at}"
        out.append((time, block[at + 48:at + 48 + length], mark == MARK_CLOSING))
        at += size
    return out


class Stage:
    """One handle, fed as the replay wrapper feeds it."""

    def __init__(self, protocol, fill=FILL, depth=DEPTH):
        self.lib, self.handle = LIBRARY, ctypes.c_void_p()
        assert self.lib.NxDRPP_CreateHandle(ctypes.byref(self.handle), fill, depth, protocol) == NO_ERROR
        self.out = bytearray()
        self.room = ctypes.create_string_buffer(1 << 21)

    def close(self):
        self.lib.NxDRPP_DestroyHandle(ctypes.byref(self.handle))

    def insert(self, block, end=False):
        data = ctypes.create_string_buffer(block, len(block))
        flag, consumed = ctypes.c_bool(end), ctypes.c_uint64()
        return self.lib.NxDRPP_InsertFrames(self.handle, data, len(block), ctypes.byref(flag), ctypes.byref(consumed))

    def get(self):
        written = ctypes.c_uint64()
        code = self.lib.NxDRPP_GetFrames(self.handle, self.room, len(self.room), False, ctypes.byref(written))
        assert code in (NO_ERROR, NOT_REACHED), code
        self.out += ctypes.string_at(self.room, written.value)

    def statistics(self):
        s = (ctypes.c_uint64 * 6)()
        assert self.lib.NxDRPP_GetStatistics(self.handle, s) == NO_ERROR
        return dict(zip(("total", "processed", "bytes", "held", "held_bytes", "ready"), s))

    def run(self, stream, every=8):
        """Inserts each (time, frame) alone, waiting out a full stage, takes
        what is ready every few records, and closes. Returns what left and
        how many records the stage held at most."""
        most = 0
        for n, (time, frame) in enumerate(stream):
            while (code := self.insert(record(frame, time))) == BUFFER_FULL:
                self.get()
            assert code == NO_ERROR, code
            most = max(most, self.statistics()["held"])
            if n % every == 0:
                self.get()
        assert self.insert(closing(), end=True) == NO_ERROR
        self.get()
        return split(bytes(self.out)), most


# ---- streams ---------------------------------------------------------------

MAC = dict(src="02:00:00:00:00:01", dst="02:00:00:00:00:02")


def ethernet(packet, tags=()):
    frame = Ether(**MAC)
    for kind, vid in tags:
        frame = frame / kind(vlan=vid)
    return bytes(frame / packet)


def datagram(ident, size, fragsize, tags=(), src="10.0.0.1"):
    """(payload, fragment frames in offset order)."""
    payload = random.randbytes(size)
    packet = IP(src=src, dst="10.0.0.2", id=ident) / UDP(sport=4000, dport=5000) / Raw(payload)
    return payload, [ethernet(f, tags) for f in fragment(packet, fragsize=fragsize)]


def fragment_frame(ident, offset, data, more, tags=()):
    return ethernet(IP(src="10.0.0.1", dst="10.0.0.2", id=ident, proto=17, flags="MF" if more else 0,
                       frag=offset // 8) / Raw(data), tags)


def plain(n):
    """Unfragmented background traffic that says which frame it is."""
    return ethernet(IP(src="10.0.0.9", dst="10.0.0.2") / UDP(sport=7, dport=7) / Raw(b"plain %06d" % n))


SPACERS = itertools.count(100000)


def spaced(frame):
    """`frame` between four plain frames on each side: shuffled() cannot
    move it past the frames around them, so it arrives in its place."""
    return [plain(next(SPACERS)) for _ in range(4)] + [frame] + [plain(next(SPACERS)) for _ in range(4)]


def tp_segments(session, payload, segsize, message=0x12340001, client=1):
    """SOME/IP TP segments of one notification, in offset order."""
    segments = []
    for offset in range(0, len(payload), segsize):
        chunk, more = payload[offset:offset + segsize], offset + segsize < len(payload)
        segments.append(tp_frame(session, offset, chunk, more, message, client))
    return segments


def tp_frame(session, offset, chunk, more, message=0x12340001, client=1):
    someip = struct.pack(">IIHHBBBBI", message, 8 + 4 + len(chunk), client, session, 1, 1, 0x22, 0,
                         (offset & ~0xF) | int(more)) + chunk
    return ethernet(IP(src="10.0.0.1", dst="10.0.0.2") / UDP(sport=SOMEIP_PORT, dport=SOMEIP_PORT) / Raw(someip))


def shuffled(frames, spread):
    """Stamps frames 100 us apart in their order, then moves each by less
    than `spread` places, as a merged capture does: (time, frame)."""
    stamped = [(100 * (i + 1), f) for i, f in enumerate(frames)]
    keys = [i + random.uniform(0, spread) for i in range(len(stamped))]
    return [s for _, s in sorted(zip(keys, stamped), key=lambda pair: pair[0])]


# ---- the reference ---------------------------------------------------------

def tshark(frames, *fields):
    """Rows of `fields` for the frames (time, frame) as tshark dissects them."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "out.pcap")
        with open(path, "wb") as pcap:
            pcap.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1))
            for time, frame in frames:
                pcap.write(struct.pack("<IIII", time // 1000000, time % 1000000, len(frame), len(frame)) + frame)
        command = TSHARK + ["-r", path, "-T", "fields", "-E", "separator=|", "-E", "occurrence=l"]
        for field in fields:
            command += ["-e", field]
        result = subprocess.run(command, capture_output=True, text=True, check=True, env=TOOL_ENVIRONMENT)
        return [line.split("|") for line in result.stdout.splitlines()]


class Reassembly(unittest.TestCase):

    def setUp(self):
        random.seed(self.id())

    def pass_through(self, protocol, stream, **numbers):
        """Runs the stream and checks what every stream must keep: records
        as given, in time order, the closing record last, nothing held for
        ever. Returns the frames that left as (time, frame), the statistics
        and the most records held."""
        stage = Stage(protocol, **numbers)
        try:
            records, most = stage.run(stream)
            statistics = stage.statistics()
        finally:
            stage.close()
        self.assertTrue(records and records[-1][2], "the closing record leaves last")
        left = [(t, f) for t, f, end in records[:-1]]
        self.assertFalse(any(end for _, _, end in records[:-1]))
        given = collections.Counter(f for _, f in stream)
        times = collections.Counter(t for t, _ in stream)
        for time, frame in left:
            self.assertGreater(given[frame], 0, "a frame that was not given")
            self.assertGreater(times[time], 0, "a time that was not given")
            given[frame] -= 1
            times[time] -= 1
        self.assertEqual([t for t, _ in left], sorted(t for t, _ in left), "time order")
        self.assertEqual(statistics["processed"], len(records))
        self.assertEqual(statistics["held"], 0)
        self.assertLessEqual(most, numbers.get("depth", DEPTH))
        return left, statistics, most

    def assertReassembled(self, rows, whole, lost):
        """rows: (key, message, offset, reassembled length, data, problems)
        of each frame as tshark saw it."""
        reassembled, offsets = {}, collections.defaultdict(list)
        for key, message, offset, length, data, problems in rows:
            self.assertEqual(problems, ("", ""), f"message {key}: tshark saw no overlap and no error")
            self.assertNotIn(message, lost, "no part of a message that could not complete leaves")
            offsets[key].append(int(offset))
            if length:
                reassembled[key] = bytes.fromhex(data)
        self.assertEqual(sorted(reassembled), sorted(whole), "the messages that leave")
        for key, data in whole.items():
            self.assertTrue(reassembled[key] == data, f"message {key} byte for byte")
            self.assertEqual(offsets[key], sorted(offsets[key]), f"message {key} leaves in offset order")

    def dropped(self, statistics):
        return statistics["total"] - statistics["processed"] - statistics["held"]

    def test_udp_datagrams(self):
        """Fragments shuffled within the window, recorded last first,
        duplicated, one missing, overlapping, on VLANs: tshark reassembles
        each datagram that leaves, and only those that could complete."""
        frames, whole, drops, lost = [], {}, 0, set()
        for k in range(48):
            ident = 0x100 + k
            case = k % 8
            tags = {5: [(Dot1Q, 10)], 6: [(Dot1AD, 20), (Dot1Q, 30)]}.get(case, ())
            payload, parts = datagram(ident, random.randint(1500, 5000), random.choice([504, 800, 1480]), tags)
            if case == 1:
                parts.reverse()  # some stacks send the last fragment first
            elif case == 2:
                parts.insert(len(parts) - 1, parts[0])  # exact duplicate
                drops += 1
            elif case == 3:
                del parts[1]  # lost in the recording
                drops += len(parts)
                lost.add(ident)
            elif case == 4:
                # overlaps the first; it comes before the datagram could complete
                parts[1:1] = spaced(fragment_frame(ident, 8, random.randbytes(16), True))
                drops += len(parts) - 8
                lost.add(ident)
            elif case == 7:
                # the same datagram identity on another VLAN, at the same time
                other_payload, other = datagram(ident, 3000, 1480, [(Dot1Q, 99)])
                whole[(ident, "99")] = other_payload
                parts = [p for pair in zip(parts, other) for p in pair] + parts[len(other):] + other[len(parts):]
            if ident not in lost:
                whole[(ident, "")] = payload
            frames += parts + [plain(2 * k), plain(2 * k + 1)]
        left, statistics, most = self.pass_through(UDP_PROTOCOL, shuffled(frames, 4))

        rows = tshark(left, "ip.id", "vlan.id", "ip.frag_offset", "ip.reassembled.length", "udp.payload",
                      "ip.fragment.overlap", "ip.fragment.error")
        self.assertReassembled([((int(ident, 16), "99" if vlan == "99" else ""), int(ident, 16), offset, length, payload,
                                 (overlap, error)) for ident, vlan, offset, length, payload, overlap, error in rows],
                               whole, lost)
        self.assertEqual(self.dropped(statistics), drops)
        self.assertEqual(sum(1 for _, f in left if b"plain" in f), sum(1 for f in frames if b"plain" in f))
        self.assertLess(most, 60, "no message holds the window until the end")

    def test_someip_tp_messages(self):
        """Segments shuffled, duplicated, one missing, overlapping in
        agreement and in contradiction, breaking the 16-byte rule, cut by a
        new session: tshark reassembles what leaves, first-received bytes."""
        frames, whole, drops, lost = [], {}, 0, set()
        for session in range(1, 41):
            case = session % 8
            payload = random.randbytes(random.randint(1500, 4000))
            parts = tp_segments(session, payload, random.choice([208, 512, 1392]))
            if case == 1:
                parts.reverse()
            elif case == 2:
                parts.insert(len(parts) - 1, parts[0])
                drops += 1
            elif case == 3:
                del parts[1]
                drops += len(parts)
                lost.add(session)
            elif case == 4:
                # after the first segment, one that overlaps it and the next with the same bytes: kept
                size = len(parts[0]) - len(tp_frame(session, 0, b"", True))
                parts[1:1] = spaced(tp_frame(session, 16, payload[16:16 + size], True))
            elif case == 5:
                # after the first segment, one that overlaps it with other bytes: dropped
                parts[1:1] = spaced(tp_frame(session, 0, random.randbytes(64), True))
                drops += 1
            elif case == 6:
                # before the last segment, a non-last one of 40 bytes: the message goes
                parts[1:1] = spaced(tp_frame(session, len(payload) - 48, payload[-48:-8], True))
                drops += len(parts) - 8
                lost.add(session)
            elif case == 7:
                # a new session starts before the old message completes: the
                # rest of the old one, stamped after that, cannot save it
                old = tp_segments(0x8000 + session, random.randbytes(2000), 512)
                parts = old[:2] + spaced(parts[0]) + parts[1:] + old[2:]
                drops += len(old)
                lost.add(0x8000 + session)
            if session not in lost:
                whole[session] = payload
            frames += parts + [plain(session)]
        left, statistics, most = self.pass_through(SOMEIP, shuffled(frames, 4))

        rows = tshark(left, "someip.sessionid", "someip.tp.offset", "someip.tp.reassembled.length",
                      "someip.tp.reassembled.data", "someip.tp.fragment.overlap.conflicts", "someip.tp.fragment.error")
        self.assertReassembled([(int(session, 16), int(session, 16), offset, length, data, (conflicts, error))
                                for session, offset, length, data, conflicts, error in rows if session], whole, lost)
        self.assertEqual(self.dropped(statistics), drops)
        self.assertLess(most, 60)

    def test_tcp_segments(self):
        """Segments of a connection shuffled, some recorded before the one
        they follow, some sent again: what leaves is in sequence order
        without retransmissions (tshark's analysis), the byte stream whole,
        duplicate acknowledgements kept."""
        data = random.randbytes(40000)
        base = 1000
        syn = ethernet(IP(src="10.0.0.1", dst="10.0.0.2") / TCP(sport=4000, dport=80, flags="S", seq=base - 1))
        segments, at = [syn], 0
        while at < len(data):
            n = random.randint(200, 1400)
            segments.append(ethernet(IP(src="10.0.0.1", dst="10.0.0.2") /
                                     TCP(sport=4000, dport=80, flags="PA", seq=base + at, ack=1) / Raw(data[at:at + n])))
            at += n
        acks = [ethernet(IP(src="10.0.0.2", dst="10.0.0.1") / TCP(sport=80, dport=4000, flags="A", seq=1, ack=base))] * 3
        frames, drops = [], 0
        for i, segment in enumerate(segments):
            frames.append(segment)
            if i % 5 == 3:
                frames.append(segment)  # sent again at once
                drops += 1
            if i % 9 == 4:
                frames += acks
        for i in range(2, len(segments), 7):
            frames.append(segments[i])  # sent again much later
            drops += 1
        for i in range(5, len(frames) - 1, 11):
            frames[i], frames[i + 1] = frames[i + 1], frames[i]  # stamped before the segment it follows
        left, statistics, _ = self.pass_through(TCP_PROTOCOL, shuffled(frames, 4))

        rows = tshark(left, "tcp.srcport", "tcp.seq_raw", "tcp.payload", "tcp.analysis.retransmission",
                      "tcp.analysis.out_of_order", "tcp.analysis.lost_segment")
        stream = b""
        for port, seq, payload, retransmission, out_of_order, lost in rows:
            self.assertEqual((retransmission, out_of_order, lost), ("", "", ""), f"segment {seq}")
            if port == "4000":
                stream += bytes.fromhex(payload)
        self.assertEqual(stream, data)
        self.assertEqual(self.dropped(statistics), drops)
        self.assertEqual(sum(1 for _, f in left if f == acks[0]), frames.count(acks[0]))

    def test_window_is_never_held_for_ever(self):
        """A datagram that misses its middle while everything after it is
        stamped before its end: no time-out can come, so the full window
        gives it up and the stream goes on, in order."""
        _, parts = datagram(0x77, 4000, 1480)
        stream = [(100, parts[0]), (100000, parts[2])] + [(100 + i, plain(i)) for i in range(1, 301)]
        left, statistics, most = self.pass_through(UDP_PROTOCOL, stream, fill=10, depth=40)
        self.assertEqual([f for _, f in left], [plain(i) for i in range(1, 301)])
        self.assertEqual(self.dropped(statistics), 2)
        self.assertLessEqual(most, 40)

    def test_generic_mends_order_and_changes_nothing(self):
        frames = [plain(i) for i in range(500)]
        _, parts = datagram(0x55, 3000, 800)
        frames[100:100] = parts[::-1]  # no reassembly here: fragments stay as recorded
        stream = shuffled(frames, 6)
        left, statistics, _ = self.pass_through(GENERIC, stream)
        self.assertEqual(left, sorted(stream, key=lambda s: s[0]))
        self.assertEqual(self.dropped(statistics), 0)


class Exports(unittest.TestCase):
    def test_six_operations_and_nothing_else(self):
        result = subprocess.run(["nm", "-D", "--defined-only", LIBRARY._name], capture_output=True, text=True,
                                check=True, env=TOOL_ENVIRONMENT)
        names = sorted(line.split()[-1] for line in result.stdout.splitlines() if " T " in line or " D " in line)
        self.assertEqual(names, sorted(["NxDRPP_CreateHandle", "NxDRPP_DestroyHandle", "NxDRPP_InsertFrames",
                                        "NxDRPP_GetFrames", "NxDRPP_FlushBuffers", "NxDRPP_GetStatistics"]))


# ---- seeds of the fuzz target (tests/fuzz/drpp_fuzz.cpp reads them) --------

def fuzz_seed(protocol, stream, fill=4, depth=24):
    """Protocol (0 generic, 1 UDP, 2 SOME/IP, 3 TCP), fill level, depth, then
    each frame with its time step, a take every 8 frames, the closing record
    with the end flag and a last take."""
    seed, time = bytearray([protocol, fill - 1, depth - fill - 1]), 0
    for n, (t, frame) in enumerate(stream):
        seed += struct.pack("<BHh", 0, len(frame), t - time) + frame
        time = t
        if n % 8 == 7:
            seed += bytes([10, 255])
    return bytes(seed + bytes([0x1D, 15]))


def write_fuzz_seeds(folder):
    random.seed(14)
    udp = []
    for ident in range(3):
        parts = datagram(0x300 + ident, 900, 256, [(Dot1AD, 5), (Dot1Q, 6)] if ident == 2 else ())[1]
        udp += parts + [parts[0] if ident == 0 else plain(ident)]
    someip = []
    for session in range(1, 4):
        payload = random.randbytes(500)
        someip += tp_segments(session, payload, 128 if session < 3 else 64) + [tp_frame(session, 16, payload[16:80], True)]
    tcp = [ethernet(IP(src="10.0.0.1", dst="10.0.0.2") / TCP(sport=4000, dport=80, flags="PA", seq=1000 + 100 * i) /
                    Raw(random.randbytes(100))) for i in range(12)]
    tcp += tcp[3:5]
    seeds = {"generic": (0, [plain(i) for i in range(20)]), "udp": (1, udp), "someip": (2, someip), "tcp": (3, tcp)}
    os.makedirs(folder, exist_ok=True)
    for name, (protocol, frames) in seeds.items():
        with open(os.path.join(folder, name), "wb") as out:
            out.write(fuzz_seed(protocol, shuffled(frames, 3)))


if __name__ == "__main__":
    if sys.argv[1] == "--fuzz-seeds":
        write_fuzz_seeds(sys.argv[2])
        sys.exit(0)
    LIBRARY = ctypes.CDLL(sys.argv[1])
    u64, pointer = ctypes.c_uint64, ctypes.c_void_p
    for name, argtypes in (("CreateHandle", [pointer, u64, u64, ctypes.c_uint32]), ("DestroyHandle", [pointer]),
                           ("InsertFrames", [pointer, pointer, u64, pointer, pointer]),
                           ("GetFrames", [pointer, pointer, u64, ctypes.c_bool, pointer]),
                           ("GetStatistics", [pointer, pointer])):
        getattr(LIBRARY, "NxDRPP_" + name).argtypes = argtypes
    unittest.main(argv=sys.argv[:1] + sys.argv[2:])
