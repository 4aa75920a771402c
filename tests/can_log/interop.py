"""Interoperability partner of the CAN log tests, run by Debian's python3
with python3-can.

    interop.py write FILE   writes a fixed set of frames to FILE (.asc or
                            .log) with python-can and prints them
    interop.py read FILE    reads FILE with python-can and prints its frames

Each frame prints as one line:
    <microseconds> <id hex> <ext> <remote> <fd> <brs> <esi> <length> <channel> <R|T> <data hex or ->
with flags as 0 or 1 and channels counted from 0.
"""
import re
import sys

import can


def frames():
    # The first time is a whole millisecond: an ASC header holds no finer
    # start, and python-can counts the other times from the first frame.
    t = 1688371200.250  # 2023-07-03 08:00:00.250 UTC, daylight saving in Europe
    m = can.Message
    return [
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


def channel_number(channel):
    if isinstance(channel, int):
        return channel
    digits = re.search(r"(\d+)$", str(channel or ""))
    return int(digits.group(1)) if digits else 0


def line(msg):
    data = "-" if msg.is_remote_frame or not msg.data else bytes(msg.data).hex().upper()
    flags = [msg.is_extended_id, msg.is_remote_frame, msg.is_fd, msg.bitrate_switch, msg.error_state_indicator]
    return "%d %X %s %d %d %s %s" % (round(msg.timestamp * 1e6), msg.arbitration_id, " ".join(str(int(f)) for f in flags),
                                     msg.dlc, channel_number(msg.channel), "R" if msg.is_rx else "T", data)


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in ("write", "read"):
        sys.exit(__doc__)
    path = sys.argv[2]
    if sys.argv[1] == "write":
        messages = frames()
        logger = can.Logger(path)
        for msg in messages:
            logger.on_message_received(msg)
        logger.stop()
        if path.endswith(".log"):
            # python-can's log writer leaves out the length of a remote frame.
            for msg in messages:
                if msg.is_remote_frame:
                    msg.dlc = 0
    elif path.endswith(".asc"):
        messages = list(can.ASCReader(path, relative_timestamp=False))
    else:
        messages = list(can.LogReader(path))
    for msg in messages:
        print(line(msg))


if __name__ == "__main__":
    main()
