"""The Python module over the shared library: round trips of every function number in both
directions and codecs, refusals of bad bytes with their offsets, and hostile input."""

import os
import random
import struct
import subprocess
import sys

import pytest

import trdcomp
from trdcomp import (FORM_HEADER_ONLY, FORM_NO_BODY,
                     FORM_PASS_THROUGH, KIND_BLOCK, KIND_CHAR, KIND_COUNTED_BLOCK, KIND_DOUBLE,
                     KIND_GROUP, KIND_INT32, KIND_INT64, KIND_SHORT_TEXT, KIND_TEXT)

ALNUM = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
TEXT_STOP_BIT, TEXT_EXCHANGE = 1, 2


def value(f, rng, codec):
    """A value of field `f` that the codec carries exactly."""
    if f.kind == KIND_CHAR:
        return chr(rng.randrange(256))
    if f.kind in (KIND_TEXT, KIND_SHORT_TEXT):
        if codec == 2011 and f.text_form == TEXT_EXCHANGE:
            return rng.choice(["IF1", "600", "ABC", ""])
        most = min(f.width, f.cap) - 1
        length = rng.randrange(most + 1)
        local = codec == 2008 or f.text_form != TEXT_STOP_BIT
        return "".join(chr(rng.randrange(0xB0, 0xF8)) if local and rng.random() < 0.1
                       else rng.choice(ALNUM) for _ in range(length))
    if f.kind == KIND_BLOCK:
        return bytes(rng.randrange(256) for _ in range(rng.randrange(f.width + 1))).rstrip(b"\0")
    if f.kind == KIND_INT32:
        bits = 31 if codec == 2011 else 29
        return rng.randrange(-(1 << bits) + 1, 1 << bits)
    if f.kind == KIND_INT64:
        # The 2011 codec's ten-byte form drops bit 63 of negative values from -2^62 down.
        return rng.randrange(-(1 << 62) + 1, 1 << 63) if codec == 2011 else \
            rng.randrange(-(1 << 59) + 1, 1 << 59)
    if f.kind == KIND_DOUBLE:
        return rng.randrange(10 ** 9) / (1000.0 if codec == 2011 else 10000.0)
    raise AssertionError(f.kind)


def record(section, rng, codec):
    rec = {}
    for f in section.top_level():
        if f.kind == KIND_GROUP:
            n = rng.randrange(f.repeat + 1)
            rec[f.count_offset] = n
            rec[f.offset] = [{m.offset: value(m, rng, codec) for m in section.members(f)}
                             for _ in range(n)]
        elif f.kind == KIND_COUNTED_BLOCK:
            used = rng.randrange(300)
            rec[f.count_offset] = used
            rec[f.offset] = bytes(rng.randrange(1, 256) for _ in range(used))
        elif f.offset not in rec:
            rec[f.offset] = value(f, rng, codec)
    if section.opaque:
        return b""
    return rec


def message(number, direction, codec, count=4):
    rng = random.Random(number * 4 + direction * 2 + (codec == 2011))
    shape = trdcomp.describe(number, direction, codec)
    name = ("request", "answer")[direction]
    m = {"direction": name, "function": number,
         "header": {"flags": 0x10 if codec == 2011 else 0,
                    "caller": bytes(rng.randrange(256) for _ in range(59 if direction == 0 else 11))}}
    if direction == 1:
        m["header"].update(shortText="000", text="OK")
    if shape.form in (FORM_NO_BODY, FORM_PASS_THROUGH):
        body = b"" if shape.form == FORM_NO_BODY else bytes(rng.randrange(256) for _ in range(40))
        m["body"] = body
        m["header"].update(count=1 if body else 0, size=len(body))
    elif direction == 0:
        m["records"] = [record(shape.sections[0], rng, codec) for _ in range(count)]
    else:
        m["sections"] = [{"records": [record(s, rng, codec) for _ in range(count)]}
                         for s in shape.sections]
    return m


@pytest.mark.parametrize("direction", [0, 1], ids=["request", "answer"])
@pytest.mark.parametrize("codec", [2008, 2011])
def test_every_number_round_trips(direction, codec):
    failures = []
    for number in trdcomp.functions():
        sent = message(number, direction, codec)
        raw = trdcomp.to_raw(sent)
        expected = trdcomp.from_raw(raw)
        packed = trdcomp.pack(sent)
        got = trdcomp.restore(packed)
        if trdcomp.describe(number, direction, codec).form == FORM_HEADER_ONLY:
            # Requests 1000 and 1001 travel as their header alone.
            expected["records"], expected["header"]["count"] = [], 0
        if got != expected:
            failures.append(number)
            continue
        # The dict packs back to the same bytes.
        if trdcomp.pack(got) != packed:
            failures.append(-number)
    assert failures == []


def test_records_keep_their_values():
    sent = {"direction": "request", "function": 1260, "header": {"flags": 0x10},
            "records": [{0: "K", 17: "ACC1", 145: 2, 149: [{0: "B", 2: "x"}, {1: 7, 2: "yz"}],
                         365: "END"}]}
    got = trdcomp.restore(trdcomp.pack(sent))
    rec = got["records"][0]
    assert rec[0] == "K" and rec[17] == "ACC1" and rec[365] == "END" and rec[145] == 2
    assert rec[149] == [{0: "B", 1: "", 2: "x"}, {0: "", 1: "\x07", 2: "yz"}]
    assert got["header"]["size"] == 381


def test_codec_choice_and_flag():
    sent = message(1010, 1, 2008)
    assert trdcomp.pack(sent)[8] >> 4 == 0
    # The 2011 codec has no optional second section.
    with pytest.raises(trdcomp.TrdcompError, match="has 1 in the 2011 codec"):
        trdcomp.pack(sent, codec=2011)
    del sent["sections"][1]
    packed = trdcomp.pack(sent, codec=2011)
    assert packed[8] >> 4 == 1
    assert len(trdcomp.restore(packed)["sections"]) == 1
    wide = {"direction": "request", "function": 1010, "records": [{182: -(1 << 30)}]}
    assert trdcomp.restore(trdcomp.pack(wide, flag=1), flag=1)["records"][0][182] == -(1 << 30)
    assert trdcomp.restore(trdcomp.pack(wide))["records"][0][182] != -(1 << 30)


def packed_request():
    return trdcomp.pack(message(1002, 0, 2008))


def with_bytes(data, at, fmt, value):
    b = bytearray(data)
    struct.pack_into(fmt, b, at, value)
    return bytes(b)


@pytest.mark.parametrize("make, code, offset", [
    (lambda: packed_request()[:40], trdcomp.ERROR_HEADER_LENGTH, 0),
    (lambda: packed_request()[:3], trdcomp.ERROR_TRUNCATED, 3),
    (lambda: with_bytes(packed_request(), 4, "<I", 5000), trdcomp.ERROR_PACKED_UNKNOWN, 8),
    (lambda: with_bytes(packed_request(), 4, "<I", 1022), trdcomp.ERROR_PACKED_UNKNOWN, 8),
    (lambda: with_bytes(packed_request(), 0, "<i", 1000), trdcomp.ERROR_HEADER, 0),
    (lambda: with_bytes(packed_request(), 68, "<i", -1), trdcomp.ERROR_NEGATIVE_SIZE, 68),
    (lambda: with_bytes(packed_request(), 8, "<B", 3), trdcomp.ERROR_SECTION_BIT, 8),
    (lambda: with_bytes(trdcomp.pack(message(1002, 0, 2011)), 76, "<H", 9),
     trdcomp.ERROR_COUNT_MISMATCH, 76),
    (lambda: with_bytes(trdcomp.pack(message(1024, 1, 2011)), 88, "<i", 3),
     trdcomp.ERROR_COUNT_MISMATCH, None),
], ids=["short header", "no header length", "unknown number", "gap number", "header length",
        "negative count", "section bit", "2011 count", "dictionary count"])
def test_bad_bytes_are_refused_with_their_offset(make, code, offset):
    data = make()
    for call in (trdcomp.restore, trdcomp.restore_raw, trdcomp.explain):
        with pytest.raises(trdcomp.TrdcompError) as e:
            call(data)
        assert (e.value.code, e.value.offset) == (code, e.value.offset if offset is None else
                                                  offset), call.__name__


@pytest.mark.parametrize("sent, words", [
    ({"direction": "request", "function": 1002, "records": [{3: "x" * 33}]}, "do not fit"),
    ({"direction": "request", "function": 1002, "records": [{0: 300}]}, "not a byte"),
    ({"direction": "request", "function": 1002, "records": [{4: "A"}]}, "no field at offset 4"),
    ({"direction": "request", "function": 1010, "records": [{182: 1 << 31}]}, "out of range"),
    ({"direction": "request", "function": 1002, "records": [{3: "\u0101"}]}, r"above U\+00FF"),
    ({"direction": "sideways", "function": 1002}, "direction"),
    ({"direction": "request", "function": 4}, "unknown function number"),
    ({"direction": "answer", "function": 1003, "sections": [{}, {}]}, "sections"),
])
def test_bad_dicts_are_refused(sent, words):
    with pytest.raises(trdcomp.TrdcompError, match=words):
        trdcomp.pack(sent)


def test_pack_refuses_a_packed_message():
    with pytest.raises(trdcomp.TrdcompError) as e:
        trdcomp.pack(packed_request())
    assert (e.value.code, e.value.offset) == (trdcomp.ERROR_HEADER, 8)


def test_hostile_bytes_never_crash():
    rng = random.Random(7)
    seeds = [trdcomp.pack(message(n, d, c, 3)) for n in (1002, 1024, 1023, 1260, 8996, 1010)
             for d in (0, 1) for c in (2008, 2011)]
    restored = refused = 0
    for _ in range(3000):
        b = bytearray(rng.choice(seeds))
        for _ in range(rng.randrange(1, 6)):
            b[rng.randrange(len(b))] = rng.randrange(256)
        if rng.random() < 0.3:
            del b[rng.randrange(len(b)):]
        try:
            trdcomp.restore(bytes(b), max_len=1 << 24)
            restored += 1
        except trdcomp.TrdcompError:
            refused += 1
    assert restored > 0 and refused > 0


def test_layouts_are_described():
    shape = trdcomp.describe(1260, "request", 2008)
    s = shape.sections[0]
    group = next(f for f in s.fields if f.kind == KIND_GROUP)
    assert (s.record_size, group.offset, group.repeat, group.stride, group.count_offset,
            group.members) == (381, 149, 12, 18, 145, 3)
    assert [m.group for m in s.members(group)] == [group.index] * 3
    assert [m.kind for m in s.members(group)] == [KIND_CHAR, KIND_CHAR, KIND_SHORT_TEXT]
    assert len(trdcomp.describe(1010, "answer", 2008).sections) == 2
    assert len(trdcomp.describe(1010, "answer", 2011).sections) == 1
    assert trdcomp.describe(8998, "request").form == FORM_PASS_THROUGH
    blocks = [f for f in trdcomp.describe(8996, "answer").sections[0].fields]
    assert [(f.offset, f.kind) for f in blocks][:2] == [(32768, KIND_INT32),
                                                       (0, KIND_COUNTED_BLOCK)]
    assert len(trdcomp.functions()) == 115


def test_a_missing_library_says_where_to_look():
    env = dict(os.environ, TRDCOMP_LIBRARY="/nonexistent/libtrdcomp.so", LD_LIBRARY_PATH="")
    code = "import trdcomp\ntry:\n trdcomp.functions()\nexcept ImportError as e:\n print(e)"
    out = subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True)
    assert "TRDCOMP_LIBRARY" in out.stdout

