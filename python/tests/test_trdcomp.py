"""The Python module over the shared library: round trips and explanations of every function
number in both directions and codecs, restores that agree with the library's (warnings included),
refusals of bad bytes with their offsets, and hostile input."""

import collections
import ctypes
import os
import pathlib
import random
import re
import struct
import subprocess
import sys
import warnings

import pytest

import trdcomp
from trdcomp import (FORM_HEADER_ONLY, FORM_NO_BODY, FORM_PASS_THROUGH, FORM_RECORDS, KIND_BLOCK,
                     KIND_CHAR, KIND_COUNTED_BLOCK, KIND_DOUBLE, KIND_GROUP, KIND_INT32,
                     KIND_INT64, KIND_SHORT_TEXT, KIND_TEXT, WARN_HEADER_LENGTH, WARN_RECORD_CUT,
                     WARN_RECORDS_MISSING)

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
    (lambda: with_bytes(trdcomp.pack(message(1002, 0, 2011)), 76, "<H", 9),
     trdcomp.ERROR_COUNT_MISMATCH, 76),
], ids=["short header", "2011 count"])
def test_bad_bytes_are_refused_with_their_offset(make, code, offset):
    """The library's refusal, its code and offset, from every call that reads bytes (the C
    interface's tests hold the table of refusals)."""
    data = make()
    for call in (trdcomp.restore, trdcomp.restore_raw, trdcomp.explain):
        with pytest.raises(trdcomp.TrdcompError) as e:
            call(data)
        assert (e.value.code, e.value.offset) == (code, offset), call.__name__


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


@pytest.mark.filterwarnings("ignore::trdcomp.TrdcompWarning")
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
        b = bytes(b)
        try:
            raw = trdcomp.restore_raw(b, max_len=1 << 24)
            trdcomp.restore(b, max_len=1 << 24)
            restored += 1
        except trdcomp.TrdcompError:
            refused += 1
            continue
        # What restores is framed and explained as it restored.
        assert trdcomp.frame(b)["restored_length"] == len(raw), b.hex()
        assert covered(trdcomp.explain(b, max_len=1 << 24)) == len(b), b.hex()
    assert restored > 0 and refused > 0


def test_every_number_is_known():
    # The walks below take their numbers from here; a wrong layout description fails them (a
    # field's restored value against its explained one).
    assert len(trdcomp.functions()) == 115


def test_a_missing_library_says_where_to_look():
    env = dict(os.environ, TRDCOMP_LIBRARY="/nonexistent/libtrdcomp.so", LD_LIBRARY_PATH="")
    code = "import trdcomp\ntry:\n trdcomp.functions()\nexcept ImportError as e:\n print(e)"
    out = subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True)
    assert "TRDCOMP_LIBRARY" in out.stdout



# ---- agreement with the library and its headers --------------------------------------------

INCLUDE = pathlib.Path(__file__).resolve().parents[2] / "include"


def c_constants():
    """TRDCOMP_* names and values of the C headers: the status enum and the #defines."""
    status = (INCLUDE / "trdcomp_status.h").read_text()
    found = {m[1]: int(m[2]) for m in re.finditer(r"\bTRDCOMP_(\w+) = (\d+)", status)}
    text = (INCLUDE / "trdcomp_c.h").read_text().replace("\\\n", " ")
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    for m in re.finditer(r"^#define TRDCOMP_(\w+)\s+\(?(-?(?:0x[0-9A-Fa-f]+|\d+))\)?\s*$", text,
                         re.M):
        found[m[1]] = int(m[2], 0)
    return found


@pytest.mark.skipif(not (INCLUDE / "trdcomp_status.h").is_file(), reason="no source tree")
def test_constants_are_the_c_headers():
    c = c_constants()
    status = {k: v for k, v in c.items() if k == "OK" or k.startswith(("ERROR_", "STATUS_"))}
    assert len(status) == 19
    assert {k: getattr(trdcomp, k, None) for k in status} == status
    module = {k for k in dir(trdcomp) if k.startswith("ERROR_")}
    assert module == {k for k in status if k.startswith("ERROR_")}
    prefixes = ("FLAG_", "WARN_", "FORM_", "KIND_", "ITEM_", "UNIT_")
    named = {k: v for k, v in c.items() if k.startswith(prefixes)}
    assert len(named) == 39
    assert {k: getattr(trdcomp, k, None) for k in named} == named
    assert (trdcomp.REQUEST, trdcomp.ANSWER) == (c["REQUEST"], c["ANSWER"])
    for k, v in c.items():
        if k.startswith("ITEM_"):
            assert trdcomp.ITEM_NAMES[v] == k[5:].lower().replace("_", " ")
        elif k.startswith("HEADER_"):
            words = k[7:].lower().split("_")
            assert trdcomp.HEADER_FIELDS[v] == words[0] + "".join(w.title() for w in words[1:])
    assert ctypes.sizeof(trdcomp._RequestHeader) == 76
    assert ctypes.sizeof(trdcomp._AnswerHeader) == 96


def record_prefixes(packed):
    """Offsets of the length prefixes (blocks, in the 2011 codec) of a packed message's records."""
    return [i["offset"] for i in trdcomp.explain(packed)
            if i["what"] in ("record length", "block length") and i["unit"] == "record"]


def variant(number, direction, codec, name):
    """A message of `number` made odd as `name` says, and the warnings (code, offset) expected of
    its restore; None where the variant does not apply."""
    m = message(number, direction, codec)
    if name.startswith("header length"):
        if direction == 1:
            return None
        return with_bytes(trdcomp.to_raw(m), 0, "<i", int(name.split()[-1])), \
            [(WARN_HEADER_LENGTH, 0)]
    packed = trdcomp.pack(m)
    if name == "packed":
        return packed, []
    prefixes = record_prefixes(packed)
    if not prefixes:
        return None
    if name == "cut before its last record":
        return packed[:prefixes[-1]], [(WARN_RECORDS_MISSING, prefixes[-1])]
    return packed[:-1], [(WARN_RECORD_CUT, prefixes[-1])]


@pytest.mark.parametrize("name", ["packed", "cut before its last record", "cut in its last record",
                                  "header length 0", "header length 100"])
@pytest.mark.parametrize("direction", [0, 1], ids=["request", "answer"])
@pytest.mark.parametrize("codec", [2008, 2011])
def test_odd_messages_restore_with_their_warnings(name, direction, codec):
    failures = []
    for number in trdcomp.functions():
        made = variant(number, direction, codec, name)
        if made is None:
            continue
        data, expected = made
        given = "request" if name.startswith("header length") else None
        with warnings.catch_warnings(record=True) as issued:
            warnings.simplefilter("always")
            try:
                got = trdcomp.restore_raw(data, direction=given)
                framed = trdcomp.frame(data, direction=given)
                decoded = trdcomp.restore(data, direction=given)
            except trdcomp.TrdcompError as e:
                # Only a header length past the end of a short message is refused.
                if not name.startswith("header length") or e.code != trdcomp.ERROR_HEADER_LENGTH:
                    failures.append((number, e.code))
                continue
        found = [(w.code, w.offset) for w in got.warnings]
        # Each warning is issued once per call, and the frame and the dict carry the same ones.
        if found != expected or [w.message for w in issued] != got.warnings * 3 or \
                framed["warnings"] != got.warnings or \
                decoded.get("warnings", []) != got.warnings or \
                framed["restored_length"] != len(got):
            failures.append((number, found))
            continue
        # The dict is that of the restored message, every record it counts included.
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            again = trdcomp.from_raw(got, direction=direction)
        decoded.pop("warnings", None)
        again.pop("warnings", None)
        if decoded != again:
            failures.append((number, "dict"))
    assert failures == []


def covered(items):
    """How far `items` cover their input from 0, each byte once; -1 when they skip or overlap."""
    at = 0
    for i in items:
        if i["offset"] != at or i["length"] <= 0:
            return -1
        at += i["length"]
    return at


def record_value(msg, item):
    records = msg["records"] if "records" in msg else msg["sections"][item["section"]]["records"]
    rec = records[item["record"]]
    if item["group"] is None:
        return rec[item["field"]]
    entries = rec[item["group"]]
    # Entries of zeros at the end of a group are left out of a record dict.
    return entries[item["entry"]][item["field"]] if item["entry"] < len(entries) else None


@pytest.mark.parametrize("form", ["packed", "raw"])
@pytest.mark.parametrize("direction", [0, 1], ids=["request", "answer"])
@pytest.mark.parametrize("codec", [2008, 2011])
def test_every_number_round_trips_and_is_explained(form, direction, codec):
    """A packed dict restores to the raw message's dict and packs back to the same bytes. The
    explanation's items cover every byte once, in order; a message with records has no byte that
    nothing reads; every present bit of a 2011 map has its field (or index) among the record's
    items; each field's value is the restored record's."""
    if form == "raw" and direction == 1 and codec == 2011:
        pytest.skip("the library reads every 2011 answer as packed")
    failures = []
    for number in trdcomp.functions():
        m = message(number, direction, codec)
        data = trdcomp.pack(m) if form == "packed" else trdcomp.to_raw(m)
        msg = trdcomp.restore(data)
        shape = trdcomp.describe(number, direction, codec)
        if form == "packed":
            expected = trdcomp.from_raw(trdcomp.to_raw(m))
            if shape.form == FORM_HEADER_ONLY:  # requests 1000 and 1001 travel as their header
                expected["records"], expected["header"]["count"] = [], 0
            if msg != expected or trdcomp.pack(msg) != data:
                failures.append((number, "round trip"))
                continue
        items = trdcomp.explain(data)
        if covered(items) != len(data):
            failures.append((number, "coverage"))
            continue
        fields = 0
        bits, read = collections.Counter(), collections.Counter()
        for item in items:
            key = (item["section"], item["unit"], item["record"])
            if item["what"] == "presence map":
                bits[key] += bin(item["value"] & 0x7F).count("1")
            if item["what"] in ("field", "dictionary index"):
                read[key] += 1
            if shape.form == FORM_RECORDS and item["what"] in ("unread", "trailing"):
                failures.append((number, item["what"], item["offset"]))
            if item["what"] == "header" and item["field"] in ("function", "flags"):
                if item["value"] != trdcomp.frame(data)[item["field"]]:
                    failures.append((number, item["field"]))
            if item["what"] != "field" or item["unit"] != "record":
                continue
            fields += 1
            want = record_value(msg, item)
            if item["value"] != want and (want is not None or item["value"]):
                failures.append((number, item["offset"], item["value"], want))
                break
        if any(read[key] != n for key, n in bits.items()):
            failures.append((number, "presence bits"))
        if not fields and shape.form == FORM_RECORDS and \
                any(not s.opaque and s.fields for s in shape.sections):
            failures.append((number, "no fields"))
    assert failures == []
