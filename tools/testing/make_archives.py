"""Writes the files that the tests of `quillkit inspect` read, with Python's own property-list writer.

Usage: make_archives.py DIRECTORY HEARTBEAT_HEX
"""

import plistlib
import sys
from plistlib import UID


def keyed_archive(objects):
    return {"$version": 100000, "$archiver": "NSKeyedArchiver", "$top": {"root": UID(1)}, "$objects": objects}


def class_record(*names):
    return {"$classname": names[0], "$classes": [*names, "NSObject"]}


def queue_archive(heartbeat):
    def record(sequence_id, event, retried, next_retry):
        return {"QLSDKEncodeSequenceId": sequence_id, "QLSDKEncodeEvent": UID(event),
                "QLSDKEncodeRetry": retried > 0, "QLSDKEncodeNumRetried": retried,
                "kQLSDKEncodeNextRetryTimeMillis": next_retry, "$class": UID(15)}

    def message(data, length, name):
        return {"QLSDKPicoProtoData": UID(data), "QLSDKPicoProtoDataLength": length,
                "QLSDKPicoProtoName": UID(name), "$class": UID(16)}

    return keyed_archive([
        "$null",
        {"NS.keys": [UID(2), UID(3)], "NS.objects": [UID(4), UID(5)], "$class": UID(17)},
        "unsent_events", "max_sequence_id",
        {"NS.objects": [UID(6), UID(7), UID(8)], "$class": UID(18)},
        42,
        record(42, 9, 0, 0), record(41, 10, 1, 1700000000000), record(40, 0, 0, 0),
        message(11, len(heartbeat), 12), message(13, 4, 14),
        heartbeat, "Heartbeat", b"\x08\x07\x12\x00", "KitsOwnEvent",
        class_record("EventWrapper"), class_record("EncodablePicoproto"),
        class_record("NSDictionary"), class_record("NSArray")])


def config_archive():
    return keyed_archive([
        "$null",
        {"NS.keys": [UID(2)], "NS.objects": [UID(3)], "$class": UID(9)},
        "search",
        {"name": UID(2), "config": UID(4), "$class": UID(8)},
        {"NS.keys": [UID(5)], "NS.objects": [UID(6)], "$class": UID(7)},
        "enabled", True,
        class_record("NSDictionary"), class_record("QLSDKDynamicConfigEntity"),
        class_record("NSMutableDictionary", "NSDictionary")])


def endless_archive():
    """Sixty arrays, each holding the next one twice."""
    arrays = [{"NS.objects": [UID(i + 2), UID(i + 2)], "$class": UID(62)} for i in range(60)]
    return keyed_archive(["$null", *arrays, "leaf", class_record("NSArray")])


def main():
    directory, heartbeat = sys.argv[1], bytes.fromhex(sys.argv[2])
    files = {"queue": queue_archive(heartbeat), "config": config_archive(), "endless": endless_archive(),
             "foreign": keyed_archive(["$null", {"$class": UID(2)}, class_record("SomeoneElses")]),
             "binary-list": {"QLSDKClientId": "abc\x1b[31m", "QLSDKScopes": ["a", 1, 1.5, True, b"\x00\xff"]}}
    for name, content in files.items():
        with open(f"{directory}/{name}", "wb") as file:
            plistlib.dump(content, file, fmt=plistlib.FMT_BINARY, sort_keys=False)
    with open(f"{directory}/xml-list", "wb") as file:
        plistlib.dump({"QLSDKClientId": "xml"}, file)
    with open(f"{directory}/queue", "rb") as whole, open(f"{directory}/cut", "wb") as cut:
        cut.write(whole.read()[:-40])


main()
