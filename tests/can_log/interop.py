"""Interoperability partner of the CAN log tests, run by Debian's python3
with python3-can.

    interop.py write FILE         writes a fixed set of frames to FILE (.asc,
                                  .log or .blf) with python-can and prints
                                  them; a .blf file gets error frames too
    interop.py write-many FILE N  writes N frames of every kind, error frames
                                  among them, and prints them
    interop.py read FILE          reads FILE with python-can and prints its
                                  frames

Each frame prints as one line:
    <microseconds> <id hex> <ext> <remote> <fd> <brs> <esi> <error> <length> <channel> <R|T> <data hex or ->
with flags as 0 or 1 and channels counted from 0.
"""
import random
import re
import sys

import can

# The first time is a whole millisecond: ASC and BLF headers hold no finer
# start, and python-can counts the other times from the first frame.
T0 = 1688371200.250  # 2023-07-03 08:00:00.250 UTC, daylight saving in Europe


def frames(errors):
    t = T0
    m = can.Message
    result = [
        m(timestamp=t, arbitration_id=0x123, is_extended_id=False, data=bytes(range(1, 9)), channel=0),
        m(timestamp=t + 0.000001, arbitration_id=0x1ABCDEF0, data=b"\xaa\xbb", channel=1, is_rx=False),
        m(timestamp=t + 0.010203, arbitration_id=0x7FF, is_extended_id=False, is_remote_frame=True, dlc=4, channel=0),
        m(timestamp=t + 0.5, arbitration_id=0x1FFFFFFF, is_remote_frame=True, dlc=0, channel=0),
        m(timestamp=t + 1.000999, arbitration_id=0x000, is_extended_id=False, data=b"", channel=0),
        m(timestamp=t + 1.5, arbitration_id=0x456, is_extended_id=False, is_fd=True, bitrate_switch=True,
          data=bytes(range(12)), channel=0),
        m(timestamp=t + 2.25, arbitration_id=0x18DAF110, is_fd=True, bitrate_switch=False,
          error_state_indicator=True, data=bytes(range(64)), channel=2),
        m(timestamp=t + 3.000001, arbitration_id=0x1F5, is_extended_id=False, is_fd=True, bitrate_switch=True,
          error_state_indicator=True, data=bytes(range(100, 148)), channel=1, is_rx=False),
        m(timestamp=t + 4.5, arbitration_id=0x321, is_extended_id=False, is_fd=True, bitrate_switch=False,
          data=bytes([0x55] * 7), channel=0),
    ]
    if errors:
        result += [
            m(timestamp=t + 4.600001, is_error_frame=True, arbitration_id=0x80, is_extended_id=False,
              data=bytes(range(8)), channel=3),
            m(timestamp=t + 4.7, is_error_frame=True, arbitration_id=0x1234567, data=b"", channel=0),
        ]
    return result


def many(count):
    """Frames of every kind on several channels, in time order."""
    rnd = random.Random(18)
    m = can.Message
    lengths = [0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64]
    # Whole microseconds, each time on its own: sums of floats drift.
    micros = round(T0 * 1e6)
    result = []
    for i in range(count):
        micros += rnd.choice([0, 1, rnd.randrange(1, 2000)])
        ext = rnd.random() < 0.5
        ident = rnd.randrange(0x20000000 if ext else 0x800)
        channel = rnd.randrange(4)
        kind = i % 5
        if kind == 0:
            msg = m(arbitration_id=ident, is_extended_id=ext, data=bytes(rnd.randrange(256) for _ in range(i % 9)))
        elif kind == 1:
            msg = m(arbitration_id=ident, is_extended_id=ext, is_remote_frame=True, dlc=rnd.randrange(9))
        elif kind == 4 and i % 3 == 0:
            msg = m(arbitration_id=ident, is_extended_id=ext, is_error_frame=True,
                    data=bytes(rnd.randrange(256) for _ in range(rnd.randrange(9))))
        else:
            msg = m(arbitration_id=ident, is_extended_id=ext, is_fd=True, bitrate_switch=rnd.random() < 0.5,
                    error_state_indicator=rnd.random() < 0.2,
                    data=bytes(rnd.randrange(256) for _ in range(lengths[i % 16])))
        msg.timestamp = micros / 1e6
        msg.channel = channel
        msg.is_rx = msg.is_error_frame or rnd.random() < 0.7
        result.append(msg)
    return result


def channel_number(channel):
    if isinstance(channel, int):
        return channel
    digits = re.search(r"(\d+)$", str(channel or ""))
    return int(digits.group(1)) if digits else 0


def line(msg):
    data = "-" if msg.is_remote_frame or not msg.data else bytes(msg.data).hex().upper()
    flags = [msg.is_extended_id, msg.is_remote_frame, msg.is_fd, msg.bitrate_switch, msg.error_state_indicator,
             msg.is_error_frame]
    return "%d %X %s %d %d %s %s" % (round(msg.timestamp * 1e6), msg.arbitration_id, " ".join(str(int(f)) for f in flags),
                                     msg.dlc, channel_number(msg.channel), "R" if msg.is_rx else "T", data)


def write(path, messages):
    logger = can.Logger(path)
    for msg in messages:
        logger.on_message_received(msg)
    logger.stop()
    if path.endswith(".log"):
        # python-can's log writer leaves out the length of a remote frame.
        for msg in messages:
            if msg.is_remote_frame:
                msg.dlc = 0


def main():
    verbs = {"write": 3, "write-many": 4, "read": 3}
    if len(sys.argv) < 2 or verbs.get(sys.argv[1]) != len(sys.argv):
        sys.exit(__doc__)
    path = sys.argv[2]
    if sys.argv[1] == "write":
        messages = frames(path.endswith(".blf"))
        write(path, messages)
    elif sys.argv[1] == "write-many":
        messages = many(int(sys.argv[3]))
        write(path, messages)
    elif path.endswith(".asc"):
        messages = list(can.ASCReader(path, relative_timestamp=False))
    elif path.endswith(".blf"):
        messages = list(can.BLFReader(path))
    else:
        messages = list(can.LogReader(path))
    sys.stdout.write("".join(line(msg) + "\n" for msg in messages))


if __name__ == "__main__":
    main()
