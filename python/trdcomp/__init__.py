"""Pack, restore and read the messages of the trading API.

The work is done by the trdcomp shared library, through its C interface (``trdcomp_c.h``) and
ctypes. The library is the one the ``TRDCOMP_LIBRARY`` environment variable names (a path), when
it is set; otherwise the one installed with the module (``cmake --install`` puts the module
beside the library), then the system's (``libtrdcomp.so.1``).

A message is a dict::

    {"direction": "request", "function": 1002,
     "header": {"flags": 0, "caller": b"", "count": 1, "size": 83},
     "records": [{0: "A", 3: "ACC1"}]}

An answer has ``"sections"``, each ``{"count": n, "size": s, "records": [...]}``, and its
header also ``"shortText"`` and ``"text"``. A record maps field offsets to values: texts and
single characters as ``str`` (each byte one character U+0000 to U+00FF, trailing zero bytes
left out), byte blocks as ``bytes`` (trailing zeros left out), integers as ``int``, prices as
``float``; a counted group as a list of entries, each a dict of member offsets (within the
entry) to values. Numbers without a record layout carry their body as ``"body"`` bytes.
``restore`` gives such a dict; ``pack`` takes one (or a raw message as bytes).
"""

import ctypes
import ctypes.util
import functools
import os
import struct

__all__ = [
    "TrdcompError", "functions", "describe", "pack", "restore", "restore_raw", "to_raw",
    "from_raw", "REQUEST", "ANSWER",
]

REQUEST, ANSWER = 0, 1
_DETECT = -1
_DIRECTIONS = {"request": REQUEST, "answer": ANSWER}

# Status codes of the C interface.
OK, E_ARGUMENT, E_TRUNCATED, E_HEADER, E_UNKNOWN, E_BODY, E_REFUSED, E_TOO_LARGE, E_MEMORY = range(9)

# Body forms and field kinds.
FORM_RECORDS, FORM_HEADER_ONLY, FORM_NO_BODY, FORM_PASS_THROUGH = range(4)
(KIND_CHAR, KIND_TEXT, KIND_SHORT_TEXT, KIND_BLOCK, KIND_INT32, KIND_INT64, KIND_DOUBLE,
 KIND_COUNTED_BLOCK, KIND_GROUP) = range(9)
KIND_NAMES = ("char", "text", "short text", "block", "int32", "int64", "double", "counted block",
              "group")


class TrdcompError(ValueError):
    """Bad input: ``code`` is the C interface's status code, ``offset`` the byte offset of the
    fault in the input (-1 when none applies)."""

    def __init__(self, message, code=E_ARGUMENT, offset=-1):
        super().__init__(message if offset < 0 else f"{message} (byte offset {offset})")
        self.code = code
        self.offset = offset


class _Error(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int), ("offset", ctypes.c_int64),
                ("message", ctypes.c_char * 240)]


class _SectionInfo(ctypes.Structure):
    _fields_ = [("record_size", ctypes.c_uint32), ("field_count", ctypes.c_uint32),
                ("routine", ctypes.c_uint32), ("opaque", ctypes.c_int), ("rotated", ctypes.c_int),
                ("dictionary", ctypes.c_int), ("optional", ctypes.c_int)]


class _MessageInfo(ctypes.Structure):
    _fields_ = [("number", ctypes.c_uint32), ("form", ctypes.c_int),
                ("section_count", ctypes.c_int), ("sections", _SectionInfo * 3)]


class _FieldInfo(ctypes.Structure):
    _fields_ = [("offset", ctypes.c_uint32), ("width", ctypes.c_uint32), ("cap", ctypes.c_uint32),
                ("kind", ctypes.c_int), ("group", ctypes.c_int), ("repeat", ctypes.c_uint32),
                ("stride", ctypes.c_uint32), ("members", ctypes.c_uint32),
                ("count_offset", ctypes.c_uint32), ("text_form", ctypes.c_int),
                ("base_form", ctypes.c_int), ("has_default", ctypes.c_int),
                ("dictionary", ctypes.c_int), ("base", ctypes.c_int64),
                ("base_offset", ctypes.c_uint32), ("default_value", ctypes.c_int64)]


def _candidates():
    if os.environ.get("TRDCOMP_LIBRARY"):
        return [os.environ["TRDCOMP_LIBRARY"]]
    candidates = []
    try:
        from . import _installed  # written by cmake --install, absent from a pip install
        here = os.path.dirname(os.path.abspath(__file__))
        candidates.append(os.path.normpath(os.path.join(here, _installed.LIBRARY)))
    except ImportError:
        pass
    found = ctypes.util.find_library("trdcomp")
    if found:
        candidates.append(found)
    return candidates + ["libtrdcomp.so.1", "libtrdcomp.so", "trdcomp.dll"]


@functools.lru_cache(maxsize=None)
def _lib():
    candidates = _candidates()
    for name in candidates:
        try:
            lib = ctypes.CDLL(name)
            break
        except OSError:
            continue
    else:
        raise ImportError("the trdcomp shared library was not found: set TRDCOMP_LIBRARY to its "
                          "path (tried " + ", ".join(candidates) + ")")
    lib.trdcomp_function_count.restype = ctypes.c_int
    lib.trdcomp_function_at.restype = ctypes.c_uint32
    lib.trdcomp_function_at.argtypes = [ctypes.c_int]
    lib.trdcomp_describe.argtypes = [ctypes.c_uint32, ctypes.c_int, ctypes.c_int,
                                     ctypes.POINTER(_MessageInfo)]
    lib.trdcomp_field.argtypes = [ctypes.c_uint32, ctypes.c_int, ctypes.c_int, ctypes.c_int,
                                  ctypes.c_int, ctypes.POINTER(_FieldInfo)]
    lib.trdcomp_direction.argtypes = [ctypes.c_char_p, ctypes.c_size_t]
    lib.trdcomp_pack.argtypes = [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int, ctypes.c_int,
                                 ctypes.c_int, ctypes.POINTER(ctypes.c_void_p),
                                 ctypes.POINTER(ctypes.c_size_t), ctypes.POINTER(_Error)]
    lib.trdcomp_restore.argtypes = [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int, ctypes.c_int,
                                    ctypes.c_size_t, ctypes.POINTER(ctypes.c_void_p),
                                    ctypes.POINTER(ctypes.c_size_t), ctypes.POINTER(_Error)]
    lib.trdcomp_release.argtypes = [ctypes.c_void_p]
    lib.trdcomp_release.restype = None
    return lib


# ---- layout descriptions -----------------------------------------------------------------

class Field:
    """One field of a record layout (a group member's offset is within the group's entry)."""

    __slots__ = [name for name, _ in _FieldInfo._fields_] + ["index"]

    def __init__(self, info, index):
        for name, _ in _FieldInfo._fields_:
            setattr(self, name, getattr(info, name))
        self.index = index

    def __repr__(self):
        return f"Field({self.offset}, {KIND_NAMES[self.kind]}, width={self.width})"


class Section:
    """The records of one section: size, owning layout row and fields in encoding order."""

    def __init__(self, info, fields):
        self.record_size = info.record_size
        self.routine = info.routine
        self.opaque = bool(info.opaque)
        self.rotated = bool(info.rotated)
        self.dictionary = bool(info.dictionary)
        self.optional = bool(info.optional)
        self.fields = fields

    def top_level(self):
        """Fields outside groups (groups included), in offset order."""
        out, i = [], 0
        while i < len(self.fields):
            out.append(self.fields[i])
            i += 1 + (self.fields[i].members if self.fields[i].kind == KIND_GROUP else 0)
        return sorted(out, key=lambda f: f.offset)

    def members(self, group):
        return self.fields[group.index + 1:group.index + 1 + group.members]


class Shape:
    def __init__(self, number, direction, codec, form, sections):
        self.number, self.direction, self.codec = number, direction, codec
        self.form, self.sections = form, sections


def functions():
    """The known function numbers, ascending."""
    lib = _lib()
    return [lib.trdcomp_function_at(i) for i in range(lib.trdcomp_function_count())]


def _direction(direction):
    if direction in (REQUEST, ANSWER):
        return direction
    if direction in _DIRECTIONS:
        return _DIRECTIONS[direction]
    raise TrdcompError(f"direction must be 'request' or 'answer', not {direction!r}")


@functools.lru_cache(maxsize=None)
def _describe(number, direction, codec):
    lib = _lib()
    info = _MessageInfo()
    status = lib.trdcomp_describe(number, direction, codec, ctypes.byref(info))
    if status == E_UNKNOWN:
        raise TrdcompError(f"unknown function number {number}", E_UNKNOWN, 4)
    if status:
        raise TrdcompError(f"cannot describe {number}", status)
    sections = []
    for s in range(info.section_count):
        fields = []
        for i in range(info.sections[s].field_count):
            f = _FieldInfo()
            lib.trdcomp_field(number, direction, codec, s, i, ctypes.byref(f))
            fields.append(Field(f, i))
        sections.append(Section(info.sections[s], fields))
    return Shape(number, direction, codec, info.form, sections)


def describe(number, direction="request", codec=2008):
    """The layouts of a number's records in one direction and codec (2008 or 2011)."""
    if codec not in (2008, 2011):
        raise TrdcompError(f"codec must be 2008 or 2011, not {codec!r}")
    return _describe(int(number), _direction(direction), codec)


# ---- pack and restore through the library ------------------------------------------------

def _call(function, data, *args):
    lib = _lib()
    out = ctypes.c_void_p()
    length = ctypes.c_size_t()
    err = _Error()
    status = function(bytes(data), len(data), *args, ctypes.byref(out), ctypes.byref(length),
                      ctypes.byref(err))
    if status:
        raise TrdcompError(err.message.decode("utf-8", "replace"), status, err.offset)
    try:
        return ctypes.string_at(out, length.value)
    finally:
        lib.trdcomp_release(out)


def _direction_of(direction):
    return _DETECT if direction is None else _direction(direction)


def restore_raw(data, *, direction=None, flag=0, max_len=0):
    """The raw message (bytes) of a packed one."""
    return _call(_lib().trdcomp_restore, data, _direction_of(direction), flag, max_len)


def restore(data, *, direction=None, flag=0, max_len=0):
    """The message dict of a packed (or raw) message."""
    raw = restore_raw(data, direction=direction, flag=flag, max_len=max_len)
    return from_raw(raw, direction=direction)


def pack(message, *, codec=None, flag=0, direction=None):
    """Packed bytes of a message dict or of a raw message (bytes). ``codec`` (2008 or 2011)
    overrides the codec nibble of the header; ``flag`` is the 2008 codec flag."""
    if isinstance(message, dict):
        direction = message.get("direction", direction)
        message = to_raw(message)
    choice = {None: 0, 2008: 2008, 2011: 2011}
    if codec not in choice:
        raise TrdcompError(f"codec must be 2008 or 2011, not {codec!r}")
    return _call(_lib().trdcomp_pack, message, _direction_of(direction), choice[codec],
                 flag)


# ---- raw messages and dicts --------------------------------------------------------------

_HEADER = {REQUEST: 76, ANSWER: 96}


def _detect(data):
    if len(data) < 4:
        raise TrdcompError(f"truncated message: {len(data)} bytes, too short for a header",
                           E_TRUNCATED, len(data))
    head = struct.unpack_from("<i", data, 0)[0]
    if head not in (76, 96):
        raise TrdcompError(f"header length {head} is neither 76 (a request) nor 96 (an answer)",
                           E_HEADER, 0)
    return REQUEST if head == 76 else ANSWER


def _trim(b):
    return bytes(b).rstrip(b"\0")


def _value(f, rec, at):
    if f.kind == KIND_CHAR:
        return _trim(rec[at:at + 1]).decode("latin-1")
    if f.kind in (KIND_TEXT, KIND_SHORT_TEXT):
        return _trim(rec[at:at + f.width]).decode("latin-1")
    if f.kind in (KIND_BLOCK, KIND_COUNTED_BLOCK):
        return _trim(rec[at:at + f.width])
    if f.kind == KIND_INT32:
        return struct.unpack_from("<i", rec, at)[0]
    if f.kind == KIND_INT64:
        return struct.unpack_from("<q", rec, at)[0]
    return struct.unpack_from("<d", rec, at)[0]


def _store(f, rec, at, value, what):
    def fail(why):
        raise TrdcompError(f"{what} ({KIND_NAMES[f.kind]} at offset {f.offset}): {why}")

    if f.kind in (KIND_CHAR, KIND_TEXT, KIND_SHORT_TEXT, KIND_BLOCK, KIND_COUNTED_BLOCK):
        if f.kind == KIND_CHAR and isinstance(value, int) and not isinstance(value, bool):
            if not 0 <= value <= 255:
                fail(f"{value} is not a byte")
            value = bytes([value])
        elif isinstance(value, str) and f.kind in (KIND_BLOCK, KIND_COUNTED_BLOCK):
            try:
                value = bytes.fromhex(value)
            except ValueError:
                fail("expected bytes or a hex string")
        elif isinstance(value, str):
            try:
                value = value.encode("latin-1")
            except UnicodeEncodeError:
                fail("a character above U+00FF is not a byte")
        if not isinstance(value, (bytes, bytearray)):
            fail(f"expected {'a string' if f.kind != KIND_BLOCK else 'bytes'}, got {value!r}")
        if len(value) > f.width:
            fail(f"{len(value)} bytes do not fit its {f.width}")
        rec[at:at + len(value)] = value
        return
    if f.kind in (KIND_INT32, KIND_INT64):
        if not isinstance(value, int) or isinstance(value, bool):
            fail(f"expected an integer, got {value!r}")
        bits = 32 if f.kind == KIND_INT32 else 64
        if not -(1 << (bits - 1)) <= value < (1 << (bits - 1)):
            fail(f"{value} is out of range for its field")
        struct.pack_into("<i" if bits == 32 else "<q", rec, at, value)
        return
    if isinstance(value, str) and value in ("nan", "inf", "-inf"):
        value = float(value)
    if not isinstance(value, (int, float)) or isinstance(value, bool):
        fail(f"expected a number, got {value!r}")
    struct.pack_into("<d", rec, at, float(value))


def _record_dict(section, rec):
    if section.opaque:
        return _trim(rec)
    out = {}
    for f in section.top_level():
        if f.kind != KIND_GROUP:
            out[f.offset] = _value(f, rec, f.offset)
            continue
        entries = []
        for e in range(f.repeat):
            entries.append({m.offset: _value(m, rec, f.offset + e * f.stride + m.offset)
                            for m in section.members(f)})
        used = f.repeat
        while used and not any(rec[f.offset + (used - 1) * f.stride:f.offset + used * f.stride]):
            used -= 1
        out[f.offset] = entries[:used]
    return out


def _key(key, what):
    try:
        return int(key)
    except (TypeError, ValueError):
        raise TrdcompError(f"{what}: field keys are offsets, not {key!r}") from None


def _record_bytes(section, value, what):
    rec = bytearray(section.record_size)
    if section.opaque:
        if isinstance(value, str):
            value = bytes.fromhex(value)
        if not isinstance(value, (bytes, bytearray)) or len(value) > section.record_size:
            raise TrdcompError(f"{what}: expected at most {section.record_size} bytes")
        rec[:len(value)] = value
        return rec
    if not isinstance(value, dict):
        raise TrdcompError(f"{what}: expected a dict of field offsets to values")
    fields = {f.offset: f for f in section.top_level()}
    for key, v in value.items():
        offset = _key(key, what)
        if offset not in fields:
            raise TrdcompError(f"{what}: no field at offset {offset}")
        f = fields[offset]
        if f.kind != KIND_GROUP:
            _store(f, rec, f.offset, v, f"{what}[{offset}]")
            continue
        if not isinstance(v, list) or len(v) > f.repeat:
            raise TrdcompError(f"{what}[{offset}]: expected a list of at most {f.repeat} entries")
        members = {m.offset: m for m in section.members(f)}
        for e, entry in enumerate(v):
            for mkey, mv in entry.items():
                m = members.get(_key(mkey, what))
                if m is None:
                    raise TrdcompError(f"{what}[{offset}][{e}]: no member at offset {mkey}")
                _store(m, rec, f.offset + e * f.stride + m.offset, mv, f"{what}[{offset}][{e}]")
    return rec


def _records(data, at, count, sender, size, what):
    if count < 0 or sender < 0:
        raise TrdcompError(f"{what}: negative record count or size", E_HEADER)
    if at + count * sender > len(data):
        raise TrdcompError(f"truncated message: {what} holds {count} records of {sender} bytes "
                           f"from offset {at}", E_TRUNCATED, len(data))
    keep = min(sender, size)
    return [bytes(data[at + i * sender:at + i * sender + keep]).ljust(size, b"\0")
            for i in range(count)]


def from_raw(data, *, direction=None):
    """The message dict of a raw message (bytes)."""
    data = bytes(data)
    direction = _detect(data) if direction is None else _direction(direction)
    header = _HEADER[direction]
    if len(data) < header:
        raise TrdcompError(f"truncated message: {len(data)} bytes, the header is {header}",
                           E_TRUNCATED, len(data))
    number, flags = struct.unpack_from("<IB", data, 4)
    shape = _describe(number, direction, 2011 if flags >> 4 else 2008)
    msg = {"direction": "request" if direction == REQUEST else "answer", "function": number}
    h = {"flags": flags & ~1}
    if direction == REQUEST:
        h["caller"] = _trim(data[9:68])
        h["count"], h["size"] = struct.unpack_from("<ii", data, 68)
    else:
        h["caller"] = _trim(data[9:20])
        h["shortText"] = _trim(data[20:24]).decode("latin-1")
        h["text"] = _trim(data[24:88]).decode("latin-1")
        h["count"], h["size"] = struct.unpack_from("<ii", data, 88)
    msg["header"] = h
    if shape.form in (FORM_NO_BODY, FORM_PASS_THROUGH):
        msg["body"] = data[header:]
        return msg
    if direction == REQUEST:
        s = shape.sections[0]
        recs = _records(data, 76, h["count"], h["size"], s.record_size, "the request")
        msg["records"] = [_record_dict(s, r) for r in recs]
        h["size"] = s.record_size
        return msg
    if flags & 2:
        if len(data) < 100:
            raise TrdcompError("truncated message: the section table is cut off", E_TRUNCATED,
                               len(data))
        table = struct.unpack_from("<i", data, 96)[0]
        if table < 4 or (table - 4) % 8 or (table - 4) // 8 > len(shape.sections) or \
                len(data) < 96 + table:
            raise TrdcompError(f"section table size {table} does not fit answer {number}",
                               E_HEADER, 96)
        listed = [struct.unpack_from("<ii", data, 100 + 8 * k) for k in range((table - 4) // 8)]
        at = 96 + table
    else:
        listed = [(h["count"], h["size"])]
        at = 96
    sections = []
    for k, (count, sender) in enumerate(listed):
        s = shape.sections[k]
        recs = _records(data, at, count, sender, s.record_size, f"section {k}")
        sections.append({"count": count, "size": s.record_size,
                         "records": [_record_dict(s, r) for r in recs]})
        at += count * sender
    msg["sections"] = sections
    if sections:
        h["count"], h["size"] = sections[0]["count"], sections[0]["size"]
    return msg


def to_raw(message):
    """The raw message (bytes) of a message dict."""
    if not isinstance(message, dict):
        raise TrdcompError("a message is a dict")
    direction = _direction(message.get("direction"))
    try:
        number = int(message["function"])
    except (KeyError, TypeError, ValueError):
        raise TrdcompError("the message has no function number") from None
    h = message.get("header", {})
    flags = int(h.get("flags", 0)) & 0xFE
    shape = _describe(number, direction, 2011 if flags >> 4 else 2008)
    header = bytearray(_HEADER[direction])
    struct.pack_into("<iIB", header, 0, len(header), number, flags)
    caller = h.get("caller", b"")
    if isinstance(caller, str):
        caller = bytes.fromhex(caller)
    width = 59 if direction == REQUEST else 11
    if len(caller) > width:
        raise TrdcompError(f"header caller data: {len(caller)} bytes do not fit its {width}")
    header[9:9 + len(caller)] = caller
    count_at = 68 if direction == REQUEST else 88
    if direction == ANSWER:
        for key, at, size in (("shortText", 20, 4), ("text", 24, 64)):
            b = h.get(key, "").encode("latin-1")
            if len(b) > size:
                raise TrdcompError(f"header {key}: {len(b)} bytes do not fit its {size}")
            header[at:at + len(b)] = b
    struct.pack_into("<ii", header, count_at, h.get("count", 0), h.get("size", 0))
    if shape.form in (FORM_NO_BODY, FORM_PASS_THROUGH):
        if "records" in message or "sections" in message:
            raise TrdcompError(f"{number} has no record layout; give its bytes as 'body'")
        return bytes(header) + bytes(message.get("body", b""))
    if direction == REQUEST:
        s = shape.sections[0]
        recs = [_record_bytes(s, r, f"records[{i}]")
                for i, r in enumerate(message.get("records", []))]
        struct.pack_into("<ii", header, 68, len(recs), s.record_size)
        return bytes(header) + b"".join(recs)
    sections = message.get("sections", [])
    if len(sections) > len(shape.sections):
        raise TrdcompError(f"{len(sections)} sections, answer {number} has "
                           f"{len(shape.sections)}")
    bodies = []
    for k, sec in enumerate(sections):
        s = shape.sections[k]
        bodies.append([_record_bytes(s, r, f"sections[{k}].records[{i}]")
                       for i, r in enumerate(sec.get("records", []))])
    first = len(bodies[0]) if bodies else 0
    struct.pack_into("<ii", header, 88, first, shape.sections[0].record_size)
    table = b""
    if len(bodies) > 1:
        header[8] |= 2
        table = struct.pack("<i", 4 + 8 * len(bodies)) + b"".join(
            struct.pack("<ii", len(b), shape.sections[k].record_size)
            for k, b in enumerate(bodies))
    else:
        header[8] &= ~2 & 0xFF
    return bytes(header) + table + b"".join(b"".join(b) for b in bodies)
