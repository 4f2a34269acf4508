#!/usr/bin/env python3
"""Shows the messages of a log file as JSON lines. Needs the client library and ctypes only.

usage: read_log.py LIBRARY FILE

LIBRARY is libtamlog.so, or tamlog.dll on Windows. There `tamlog_reader_open_live` opens the running server's log, and
the rest stays the same.
"""

import ctypes
import sys

OK, DAMAGED, END = 0, 10, 19
FORMAT_JSON = 3


class Time(ctypes.Structure):
    _fields_ = [(name, ctypes.c_int16)
                for name in ("year", "month", "day", "hour", "minute", "second", "millisecond", "spare")]


class Message(ctypes.Structure):
    _fields_ = [("size", ctypes.c_uint32), ("type", ctypes.c_uint32), ("sequence", ctypes.c_uint64), ("time", Time),
                ("flags", ctypes.c_uint32), ("source_length", ctypes.c_uint32), ("text_length", ctypes.c_uint32),
                ("origin", ctypes.c_uint8 * 8), ("tail", ctypes.c_uint8 * 4),
                ("source", ctypes.c_char * 260), ("text", ctypes.c_char * 260)]


def load(path):
    library = ctypes.CDLL(path)
    library.tamlog_status_text.restype = ctypes.c_char_p
    library.tamlog_reader_remark.restype = ctypes.c_char_p
    library.tamlog_reader_remark.argtypes = [ctypes.c_void_p]
    library.tamlog_reader_open_file.argtypes = [ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p)]
    library.tamlog_reader_get_message.argtypes = [ctypes.c_void_p, ctypes.c_uint32, ctypes.POINTER(Message)]
    library.tamlog_reader_close.argtypes = [ctypes.c_void_p]
    library.tamlog_reader_close.restype = None
    library.tamlog_format.argtypes = [ctypes.POINTER(Message), ctypes.c_int32, ctypes.c_uint32, ctypes.c_char_p,
                                      ctypes.c_uint64, ctypes.POINTER(ctypes.c_uint64)]
    return library


def messages(library, reader):
    index = 0
    while True:
        message = Message(size=ctypes.sizeof(Message))
        if library.tamlog_reader_get_message(reader, index, ctypes.byref(message)) == END:
            return
        yield message
        index += 1


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        library = load(arguments[0])
    except (OSError, AttributeError) as problem:
        print(f"{arguments[0]}: not the client library: {problem}", file=sys.stderr)
        return 2
    reader = ctypes.c_void_p()
    status = library.tamlog_reader_open_file(arguments[1].encode(), ctypes.byref(reader))
    if status not in (OK, DAMAGED):
        print(f"{arguments[1]}: {library.tamlog_status_text(status).decode()}", file=sys.stderr)
        return 1
    if status == DAMAGED:
        print(f"{arguments[1]}: {library.tamlog_reader_remark(reader).decode()}", file=sys.stderr)
    line = ctypes.create_string_buffer(8192)
    for message in messages(library, reader):
        library.tamlog_format(ctypes.byref(message), FORMAT_JSON, 0, line, len(line), None)
        print(line.value.decode(), end="")
    library.tamlog_reader_close(reader)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
