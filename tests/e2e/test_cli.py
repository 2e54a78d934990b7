"""The installed trdcomp binary on files and standard input and output: every function number in
both directions and codecs through pack, restore, inspect, explain and diff; good input, every
class of bad input."""

import json
import re
import struct
import subprocess

import pytest

HEADER_ONLY_REQUESTS = {1000, 1001}
NO_BODY = {1017}


def ok(process):
    assert process.returncode == 0, process.stderr.decode()
    return process.stdout


def change_one_field(message_json):
    """Changes the first plain number field of the first record that has one; returns
    (section, record, offset) or None when there is none."""
    if message_json["direction"] == "request":
        sections = [{"records": message_json.get("records", [])}]
    else:
        sections = message_json.get("sections", [])
    for s, section in enumerate(sections):
        for r, record in enumerate(section["records"]):
            if not isinstance(record, dict):
                continue
            for key, value in record.items():
                if isinstance(value, int) and not isinstance(value, bool):
                    record[key] = value + 1 if value < 1000 else value - 1
                    return s, r, int(key)
    return None


def inspected_value(message_json, item):
    """The value inspect --json gives for an explained field of a record, or the marker
    ABSENT when inspect leaves the group entry out (it lists entries up to the last nonzero)."""
    if message_json["direction"] == "request":
        record = message_json["records"][item["record"]]
    else:
        record = message_json["sections"][item["section"]]["records"][item["record"]]
    value = record[str(item["fieldOffset"])]
    if "groupEntry" not in item:
        return value
    if item["groupEntry"] >= len(value):
        return ABSENT
    return value[item["groupEntry"]][str(item["memberOffset"])]


ABSENT = object()


def explain_failures(run, message, inspected):
    """What is wrong with explain --json of `message`: items that do not cover every byte once,
    in order, with its bytes, or field values other than inspect's; and the fields explained."""
    items = json.loads(ok(run("explain", "--json", "-", stdin=message)))
    failures, at = [], 0
    for item in items:
        if item["offset"] != at or item["length"] <= 0:
            return [("coverage", at, item)], []
        if bytes.fromhex(item["hex"]) != message[at:at + item["length"]]:
            failures.append(("hex", item))
        at += item["length"]
    if at != len(message):
        failures.append(("ends at", at, len(message)))
    fields = [i for i in items if i["what"] == "field" and "record" in i]
    for item in fields:
        value = inspected_value(inspected, item)
        if value is ABSENT:
            if item["value"] not in (0, "", 0.0):
                failures.append(("entry inspect leaves out", item))
        elif value != item["value"]:
            failures.append(("value", item, value))
    return failures, fields


@pytest.mark.parametrize("direction", ["request", "answer"])
@pytest.mark.parametrize("codec", ["2008", "2011"])
def test_every_number_through_every_subcommand(run, samples, tmp_path, direction, codec):
    """raw -> packed -> JSON -> packed gives the packed bytes again, and the JSON is the raw
    message's; diff finds a packed message equal to itself and to its raw form (exit 0, nothing
    listed), and names exactly the field changed in its JSON (exit 1); explain covers every byte
    of the packed and the raw message once, with inspect's values."""
    files = sorted(samples.glob(f"*-{direction}-{codec}.bin"))
    assert len(files) == 115
    failures = []
    changed_any = 0
    packed = tmp_path / "packed.bin"
    for raw in files:
        number = int(raw.name.split("-")[0])
        packed.write_bytes(ok(run("pack", raw)))
        process = run("restore", "--json", packed)
        restored = json.loads(ok(process))
        if process.stderr:
            failures.append((number, "warned: " + process.stderr.decode()))
        if ok(run("pack", "-", stdin=json.dumps(restored).encode())) != packed.read_bytes():
            failures.append((number, "packed bytes"))
        sent = json.loads(ok(run("inspect", "--json", raw)))
        del sent["wire"]
        # The packed form carries the body unless the request travels as its header alone.
        carried = number not in NO_BODY and not (direction == "request" and
                                                 number in HEADER_ONLY_REQUESTS)
        if direction == "request" and number in HEADER_ONLY_REQUESTS:
            assert restored["records"] == [] and restored["header"]["count"] == 0
        elif number in NO_BODY:
            assert "records" not in restored and "sections" not in restored
        elif restored != sent:
            failures.append((number, "records"))
        for name, message in (("packed", packed.read_bytes()), ("raw", raw.read_bytes())):
            found, fields = explain_failures(run, message, sent)
            failures += [(number, name, *f) for f in found]
            # A sample's records hold values: a packed one explains some of its fields.
            if name == "packed" and carried and ("records" in sent or "sections" in sent) and \
                    not fields:
                failures.append((number, name, "no fields explained"))
        process = run("diff", "--json", packed, packed)
        if process.returncode != 0 or json.loads(process.stdout or b"{}") != {
                "equal": True, "header": [], "counts": [], "fields": []}:
            failures.append((number, "equal", process.stdout.decode(), process.stderr.decode()))
        process = run("diff", packed, raw if carried else packed)
        if process.returncode != 0 or process.stdout:
            failures.append((number, "equal to its raw form", process.stdout.decode()))
        where = change_one_field(restored)
        if where is None:
            continue
        changed_any += 1
        again = ok(run("pack", "-", stdin=json.dumps(restored).encode()))
        process = run("diff", "--json", packed, "-", stdin=again)
        verdict = json.loads(process.stdout or b"{}")
        found = [(f["section"], f["record"], f["offset"]) for f in verdict.get("fields", [])]
        if process.returncode != 1 or found != [where] or verdict["header"] or verdict["counts"]:
            failures.append((number, "changed", where, process.stdout.decode(),
                             process.stderr.decode()))
    assert changed_any > 50 and failures == []


def test_a_hand_written_message_packs_for_a_peer(run):
    message = {"direction": "request", "function": 1002,
               "header": {"caller": "0102"},
               "records": [{"0": "A", "3": "ACC1", "35": "caf\u00e9"}, {"0": "B", "59": "x"}]}
    packed = ok(run("pack", "--codec", "2011", "-", stdin=json.dumps(message).encode()))
    number, flags = struct.unpack_from("<IB", packed, 4)
    assert (struct.unpack_from("<i", packed, 0)[0], number, flags) == (76, 1002, 0x11)
    assert packed[9:11] == b"\x01\x02"
    back = json.loads(ok(run("restore", "--json", "-", stdin=packed)))
    assert back["records"][0]["3"] == "ACC1" and back["records"][0]["35"] == "caf\u00e9"
    assert back["records"][1]["0"] == "B" and back["header"]["count"] == 2
    shown = ok(run("inspect", "-", stdin=packed)).decode()
    assert re.search(r'\n +3 +text\[32\] +"ACC1"\n', shown)
    assert re.search(r'\n +35 +text\[24\] +"caf\\xe9"\n', shown)
    assert "codec nibble 1 (2011 Fast)" in shown


def test_hex_text_reads_like_the_bytes(run, samples):
    packed = ok(run("pack", samples / "1002-answer-2008.bin"))
    binary = ok(run("inspect", "-", stdin=packed))
    for dump in (["xxd"], ["xxd", "-p"], ["hexdump", "-Cv"], ["od", "-An", "-tx1", "-v"]):
        text = subprocess.run(dump, input=packed, capture_output=True, check=True).stdout
        assert ok(run("inspect", "--hex", "-", stdin=text)) == binary, dump


def test_names_file_names_fields(run, tmp_path):
    names = tmp_path / "names.json"
    names.write_text(json.dumps({"1002": {"request": {"0": {"0": "side", "3": "account"}}}}))
    message = {"direction": "request", "function": 1002,
               "records": [{"side": "B", "account": "ACC9"}]}
    packed = ok(run("pack", "--names", names, "-", stdin=json.dumps(message).encode()))
    named = json.loads(ok(run("restore", "--json", "--names", names, "-", stdin=packed)))
    assert named["records"][0]["account"] == "ACC9" and named["records"][0]["side"] == "B"
    assert "3" not in named["records"][0]
    assert re.search(r"account +\"ACC9\"", ok(run("inspect", "--names", names, "-",
                                                   stdin=packed)).decode())


def test_stats_count_a_capture(run, capture):
    table = json.loads(ok(run("stats", "--json", capture)))
    data = capture.read_bytes()
    assert table["total"]["messages"] == 460 == sum(r["messages"] for r in table["rows"])
    # The capture holds packed messages behind 4-byte lengths.
    assert table["total"]["packedBytes"] == len(data) - 4 * 460
    assert table["total"]["rawBytes"] > table["total"]["packedBytes"]
    row = next(r for r in table["rows"] if (r["function"], r["direction"], r["codec"]) ==
               (1002, "answer", 2011))
    assert row["messages"] == 1 and 0 < row["ratio"] < 1
    text = ok(run("stats", capture, capture)).decode()
    assert re.search(r"\n +total +920 +%d +%d" % (2 * table["total"]["rawBytes"],
                                                    2 * table["total"]["packedBytes"]), text)


def lossy(records, direction="answer", function=1010, flags=0):
    body = {"sections": [{"records": records}]} if direction == "answer" else {"records": records}
    return json.dumps({"direction": direction, "function": function, "header": {"flags": flags},
                       **body}).encode()


@pytest.mark.parametrize("message, args, reason", [
    (lossy([{"40": 1 << 29}]), [], "29 bits"),
    (lossy([{"40": -5}]), ["--flag", "2"], "codec flag 2 leaves int32 fields out"),
    (lossy([{"44": 1.23456}]), [], "more decimals than the four"),
    (lossy([{"44": 1.2345}]), ["--codec", "2011"], "more decimals than the three"),
    (lossy([{"44": -1.2345}]), [], "negative price loses a unit"),
    (lossy([{"55": "ab\u0000cd"}]), [], "after the text's terminator"),
    (lossy([{"0": "x" * 28}], function=1006), [], "short string keeps at most 27"),
    (lossy([{"28": "123456789012"}]), ["--codec", "2011"], "2011 codec keeps 11 bytes"),
    (lossy([{"145": 1, "149": [{"0": "A"}, {"0": "B"}]}], "request", 1260), [],
     "entries past the count"),
    (lossy([{"206": -(1 << 62)}], "request", 1050, 0x10), [], "loses bit 63"),
    (lossy([{"8": "ABCD"}], function=1041, flags=0x10), [], "exchange code"),
    (lambda: lossy([{}] * 70000, "request", 1005), ["--codec", "2011"], "16 bits"),
    (lossy([{"0": "x"}]), ["--codec", "2011"], None),
], ids=["int32 29 bits", "flag 2", "four decimals", "three decimals", "negative unit",
        "after terminator", "short string", "full text 2011", "group count", "int64 bit 63",
        "exchange code", "2011 count", "clean"])
def test_check_names_what_will_not_survive(run, message, args, reason):
    process = run("check", *args, "-", stdin=message() if callable(message) else message)
    out = process.stdout.decode()
    if reason is None:
        assert process.returncode == 0 and "every field survives" in out
    else:
        assert process.returncode == 3, out + process.stderr.decode()
        assert reason in out


def test_check_passes_realistic_samples(run, samples):
    for name in ("1002-request-2008.bin", "1023-answer-2011.bin", "1260-request-2011.bin"):
        process = run("check", samples / name)
        assert process.returncode == 0, process.stdout.decode()


def corrupt(data, at, fmt, value):
    b = bytearray(data)
    struct.pack_into(fmt, b, at, value)
    return bytes(b)


@pytest.mark.parametrize("make, args, words, offset", [
    (lambda p: corrupt(p, 4, "<I", 4321), [], "unknown function number", None),
    (lambda p: p[:50], [], "truncated message", 50),
    (lambda p: corrupt(p, 0, "<i", 500), ["--request"], "header length beyond the input", 0),
    (lambda p: corrupt(p, 0, "<i", 500), [], "neither 76", 0),
    (lambda p: corrupt(p, 68, "<i", -3), [], "negative", 68),
    (lambda p: b"", [], "empty input", None),
    (lambda p: b'{"direction": "request", "function": 1002, "records": [', [], "malformed JSON",
     None),
    (lambda p: b'{"direction": "request", "function": 1010, "records": [{"182": 3000000000}]}',
     [], "out of range", None),
    (lambda p: b'{"direction": "request", "function": 1002, "records": [{"4": "A"}]}', [],
     "no such field", None),
    (lambda p: b"4c 00 zz", ["--hex"], "hex input", None),
])
def test_bad_input_gets_one_clear_line(run, samples, make, args, words, offset):
    packed = ok(run("pack", samples / "1002-request-2008.bin"))
    data = make(packed)
    for command in (["inspect"], ["pack"]) if data.startswith(b"{") else (["inspect"], ["restore"]):
        process = run(*command, *args, "-", stdin=data)
        err = process.stderr.decode()
        assert process.returncode == 1, (command, err)
        assert err.count("\n") == 1 and err.startswith("trdcomp: error: ") and words in err, err
        if offset is not None:
            assert f"(byte offset {offset})" in err


def test_a_truncated_capture_names_the_message(run, capture, tmp_path):
    cut = tmp_path / "cut.bin"
    cut.write_bytes(capture.read_bytes()[:5000])
    process = run("stats", cut)
    assert process.returncode == 1
    assert re.match(rb"trdcomp: error: .*cut\.bin: message \d+ at offset \d+: the length prefix",
                    process.stderr)


@pytest.mark.parametrize("command", ["inspect", "pack", "restore", "check", "stats"])
def test_help_shows_an_example(run, command):
    out = ok(run(command, "--help")).decode()
    assert "Example" in out and f"trdcomp {command}" in out


def test_usage_errors_exit_2(run):
    assert run().returncode == 2
    assert run("inspect", "--codec", "1999").returncode == 2
    assert run("pack", "--codec", "1999", "-").returncode == 2


def test_damaged_messages_never_crash_the_tool(run, samples):
    import random
    rng = random.Random(5)
    seeds = [(samples / f"{n}-{d}-{c}.bin").read_bytes()
             for n in (1002, 1023, 1260, 8996) for d in ("request", "answer") for c in ("2008", "2011")]
    seeds += [ok(run("pack", "-", stdin=s)) for s in seeds]
    for _ in range(150):
        b = bytearray(rng.choice(seeds))
        for _ in range(rng.randrange(1, 5)):
            b[rng.randrange(len(b))] = rng.randrange(256)
        if rng.random() < 0.3:
            del b[rng.randrange(len(b)):]
        process = run("inspect", "--max-size", 1 << 22, "-", stdin=bytes(b))
        assert process.returncode in (0, 1), process.stderr
        if process.returncode == 1:
            assert process.stderr.count(b"\n") == 1
