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

A restore takes what the library takes: ``restore_raw`` gives the library's raw message as a
``Restored`` (bytes) whose ``warnings`` list what was odd about the message but restored all the
same (records past its end, restored as zeros; a header length other than 76 or 96; a 2011
count that differs from the header's), each a ``TrdcompWarning`` with ``code`` (WARN_*) and
``offset``, also issued through Python's warnings module. A restored dict carries them as
``"warnings"`` when there are any. ``frame`` tells how the library reads a message, ``explain``
what each of its bytes holds. Refusals raise ``TrdcompError`` with the library's status code
(ERROR_*; ``status_name`` gives its text) and the byte offset of the fault.
"""

import ctypes
import ctypes.util
import functools
import os
import struct
import warnings as _warnings

__all__ = [
    "TrdcompError", "TrdcompWarning", "Restored", "functions", "describe", "pack", "restore",
    "restore_raw", "to_raw", "from_raw", "frame", "explain", "status_name", "REQUEST", "ANSWER",
]

REQUEST, ANSWER = 0, 1
_DETECT = -1
_DIRECTIONS = {"request": REQUEST, "answer": ANSWER}
_DIRECTION_NAMES = ("request", "answer")

# Status codes, the library's one set (trdcomp_status.h): what the C interface returns and
# TrdcompError.code carries. status_name() gives the library's text for each.
(OK, ERROR_NULL_ARGUMENT, ERROR_NEGATIVE_SIZE, ERROR_HEADER_LENGTH, ERROR_PACKED_UNKNOWN,
 ERROR_SECTION_BIT, ERROR_COUNT_BEYOND_INPUT, ERROR_COUNT_MISMATCH, ERROR_TOO_LARGE, ERROR_LIMIT,
 ERROR_ALLOCATION, ERROR_OUTPUT_TOO_SMALL, ERROR_BODY_TOO_SHORT, ERROR_DICTIONARY_INDEX,
 ERROR_ARGUMENT, ERROR_TRUNCATED, ERROR_HEADER, ERROR_UNKNOWN_FUNCTION, STATUS_COUNT) = range(19)
# Earlier names of the codes that kept their meaning.
E_ARGUMENT, E_TRUNCATED, E_HEADER, E_UNKNOWN = (ERROR_ARGUMENT, ERROR_TRUNCATED, ERROR_HEADER,
                                                ERROR_UNKNOWN_FUNCTION)
E_TOO_LARGE, E_MEMORY = ERROR_TOO_LARGE, ERROR_ALLOCATION

# What is odd about a message that restores all the same (TrdcompWarning.code).
WARN_HEADER_LENGTH, WARN_RECORDS_MISSING, WARN_RECORD_CUT, WARN_COUNT_DISAGREES = 1, 2, 3, 4
WARNING_NAMES = {WARN_HEADER_LENGTH: "header length", WARN_RECORDS_MISSING: "records missing",
                 WARN_RECORD_CUT: "record cut", WARN_COUNT_DISAGREES: "count disagrees"}

# The bits of a header's flags byte.
FLAG_PACKED, FLAG_SECTION_TABLE = 0x01, 0x02
FLAG_NIBBLE_SHIFT, FLAG_NIBBLE_MASK = 4, 0xF0

# Body forms and field kinds.
FORM_RECORDS, FORM_HEADER_ONLY, FORM_NO_BODY, FORM_PASS_THROUGH = range(4)
(KIND_CHAR, KIND_TEXT, KIND_SHORT_TEXT, KIND_BLOCK, KIND_INT32, KIND_INT64, KIND_DOUBLE,
 KIND_COUNTED_BLOCK, KIND_GROUP) = range(9)
KIND_NAMES = ("char", "text", "short text", "block", "int32", "int64", "double", "counted block",
              "group")

# What a stretch of a message holds, as explain() names it (ITEM_* is the library's number).
ITEM_NAMES = ("header", "header gap", "table size", "table count", "table record size",
              "table unread", "section count", "dictionary size", "record length",
              "block length", "presence map", "dictionary index", "field", "unread", "trailing",
              "body")
(ITEM_HEADER, ITEM_HEADER_GAP, ITEM_TABLE_SIZE, ITEM_TABLE_COUNT, ITEM_TABLE_RECORD_SIZE,
 ITEM_TABLE_UNREAD, ITEM_SECTION_COUNT, ITEM_DICTIONARY_SIZE, ITEM_RECORD_LENGTH,
 ITEM_BLOCK_LENGTH, ITEM_PRESENCE_MAP, ITEM_DICTIONARY_INDEX, ITEM_FIELD, ITEM_UNREAD,
 ITEM_TRAILING, ITEM_BODY) = range(len(ITEM_NAMES))
# Header fields of an ITEM_HEADER item, by the keys of a message dict's "header" (and "length").
HEADER_FIELDS = ("length", "function", "flags", "caller", "shortText", "text", "count", "size")
UNIT_RECORD, UNIT_ENTRY = 0, 1
_MOST_SECTIONS = 3


class TrdcompError(ValueError):
    """Bad input: ``code`` is the library's status code (ERROR_*), ``offset`` the byte offset of
    the fault in the input (-1 when none applies)."""

    def __init__(self, message, code=ERROR_ARGUMENT, offset=-1):
        super().__init__(message if offset < 0 else f"{message} (byte offset {offset})")
        self.code = code
        self.offset = offset


class TrdcompWarning(UserWarning):
    """Something odd about a message that restores all the same: ``code`` is a WARN_*,
    ``offset`` where in the input."""

    def __init__(self, message, code, offset):
        super().__init__(f"{message} (byte offset {offset})")
        self.code = code
        self.offset = offset

    @property
    def name(self):
        return WARNING_NAMES.get(self.code, "unknown warning")

    def __eq__(self, other):
        return isinstance(other, TrdcompWarning) and \
            (self.code, self.offset, str(self)) == (other.code, other.offset, str(other))

    def __hash__(self):
        return hash((self.code, self.offset))

    def __repr__(self):
        return f"TrdcompWarning({self.name!r}, offset={self.offset})"


class Restored(bytes):
    """A restored raw message: its bytes, and in ``warnings`` the TrdcompWarnings of the
    restore (empty for a message without anything odd)."""

    def __new__(cls, data, warnings=()):
        self = super().__new__(cls, data)
        self.warnings = list(warnings)
        return self


class _Error(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int), ("offset", ctypes.c_int64),
                ("message", ctypes.c_char * 240)]


class _Warning(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int), ("offset", ctypes.c_int64),
                ("message", ctypes.c_char * 200)]


class _RequestHeader(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [("header_length", ctypes.c_int32), ("function", ctypes.c_uint32),
                ("flags", ctypes.c_uint8), ("caller", ctypes.c_uint8 * 59),
                ("count", ctypes.c_int32), ("size", ctypes.c_int32)]


class _AnswerHeader(ctypes.LittleEndianStructure):
    _pack_ = 1
    _fields_ = [("header_length", ctypes.c_int32), ("function", ctypes.c_uint32),
                ("flags", ctypes.c_uint8), ("caller", ctypes.c_uint8 * 11),
                ("short_text", ctypes.c_uint8 * 4), ("text", ctypes.c_uint8 * 64),
                ("count", ctypes.c_int32), ("size", ctypes.c_int32)]


_HEADERS = {REQUEST: _RequestHeader, ANSWER: _AnswerHeader}


class _SectionInfo(ctypes.Structure):
    _fields_ = [("record_size", ctypes.c_uint32), ("field_count", ctypes.c_uint32),
                ("routine", ctypes.c_uint32), ("opaque", ctypes.c_int), ("rotated", ctypes.c_int),
                ("dictionary", ctypes.c_int), ("optional", ctypes.c_int)]


class _MessageInfo(ctypes.Structure):
    _fields_ = [("number", ctypes.c_uint32), ("form", ctypes.c_int),
                ("section_count", ctypes.c_int), ("sections", _SectionInfo * _MOST_SECTIONS)]


class _FieldInfo(ctypes.Structure):
    _fields_ = [("offset", ctypes.c_uint32), ("width", ctypes.c_uint32), ("cap", ctypes.c_uint32),
                ("kind", ctypes.c_int), ("group", ctypes.c_int), ("repeat", ctypes.c_uint32),
                ("stride", ctypes.c_uint32), ("members", ctypes.c_uint32),
                ("count_offset", ctypes.c_uint32), ("text_form", ctypes.c_int),
                ("base_form", ctypes.c_int), ("has_default", ctypes.c_int),
                ("dictionary", ctypes.c_int), ("base", ctypes.c_int64),
                ("base_offset", ctypes.c_uint32), ("default_value", ctypes.c_int64)]


class _SectionFrame(ctypes.Structure):
    _fields_ = [("count", ctypes.c_int32), ("sender_size", ctypes.c_int32),
                ("record_size", ctypes.c_uint32), ("dictionary", ctypes.c_int),
                ("count_offset", ctypes.c_int64), ("first_offset", ctypes.c_int64),
                ("present", ctypes.c_int64), ("restored_offset", ctypes.c_int64)]


class _Frame(ctypes.Structure):
    _fields_ = [("direction", ctypes.c_int), ("codec", ctypes.c_int), ("form", ctypes.c_int),
                ("packed", ctypes.c_int), ("function", ctypes.c_uint32),
                ("flags", ctypes.c_uint8), ("header_length", ctypes.c_int32),
                ("table_offset", ctypes.c_int64), ("table_length", ctypes.c_int64),
                ("records_offset", ctypes.c_int64), ("section_count", ctypes.c_int),
                ("sections", _SectionFrame * _MOST_SECTIONS), ("end", ctypes.c_int64),
                ("restored_length", ctypes.c_int64)]


class _Item(ctypes.Structure):
    _fields_ = [("offset", ctypes.c_int64), ("length", ctypes.c_int64), ("what", ctypes.c_int),
                ("field", ctypes.c_int), ("section", ctypes.c_int), ("unit", ctypes.c_int),
                ("record", ctypes.c_int64), ("entry", ctypes.c_int32), ("width", ctypes.c_uint32),
                ("value_offset", ctypes.c_int64), ("restored_offset", ctypes.c_int64),
                ("value", ctypes.c_int64), ("overrun", ctypes.c_int64),
                ("first_place", ctypes.c_int), ("place_field", ctypes.c_int * 7),
                ("place_entry", ctypes.c_int32 * 7)]


class _Explanation(ctypes.Structure):
    _fields_ = [("frame", _Frame), ("item_count", ctypes.c_size_t),
                ("items", ctypes.POINTER(_Item)), ("values_length", ctypes.c_size_t),
                ("values", ctypes.POINTER(ctypes.c_ubyte))]


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


_P = ctypes.POINTER
_SIGNATURES = {
    "trdcomp_function_count": (ctypes.c_int, []),
    "trdcomp_function_at": (ctypes.c_uint32, [ctypes.c_int]),
    "trdcomp_describe": (ctypes.c_int, [ctypes.c_uint32, ctypes.c_int, ctypes.c_int,
                                        _P(_MessageInfo)]),
    "trdcomp_field": (ctypes.c_int, [ctypes.c_uint32, ctypes.c_int, ctypes.c_int, ctypes.c_int,
                                     ctypes.c_int, _P(_FieldInfo)]),
    "trdcomp_direction": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_size_t]),
    "trdcomp_pack": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int, ctypes.c_int,
                                    ctypes.c_int, _P(ctypes.c_void_p), _P(ctypes.c_size_t),
                                    _P(_Error)]),
    "trdcomp_restore": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int,
                                       ctypes.c_int, ctypes.c_size_t, _P(ctypes.c_void_p),
                                       _P(ctypes.c_size_t), _P(_Error)]),
    "trdcomp_restore_ex": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int,
                                          ctypes.c_int, ctypes.c_size_t, _P(ctypes.c_void_p),
                                          _P(ctypes.c_size_t), _P(_Warning), ctypes.c_size_t,
                                          _P(ctypes.c_size_t), _P(_Error)]),
    "trdcomp_frame_of": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int,
                                        ctypes.c_int, _P(_Frame), _P(_Warning), ctypes.c_size_t,
                                        _P(ctypes.c_size_t), _P(_Error)]),
    "trdcomp_explain": (ctypes.c_int, [ctypes.c_char_p, ctypes.c_size_t, ctypes.c_int,
                                       ctypes.c_int, ctypes.c_size_t, _P(_P(_Explanation)),
                                       _P(_Error)]),
    "trdcomp_status_name": (ctypes.c_char_p, [ctypes.c_int]),
    "trdcomp_release": (None, [ctypes.c_void_p]),
}


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
    for symbol, (restype, argtypes) in _SIGNATURES.items():
        try:
            function = getattr(lib, symbol)
        except AttributeError:
            raise ImportError(f"{lib._name} has no {symbol}: the module needs the library of "
                              "its own release") from None
        function.restype, function.argtypes = restype, argtypes
    return lib


def status_name(code):
    """The library's short text for a status code."""
    return _lib().trdcomp_status_name(int(code)).decode("utf-8", "replace")


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
    if status == ERROR_UNKNOWN_FUNCTION:
        raise TrdcompError(f"unknown function number {number}", status, 4)
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

def _refusal(status, err):
    return TrdcompError(err.message.decode("utf-8", "replace") or status_name(status), status,
                        err.offset)


def _call(function, data, *args):
    lib = _lib()
    data = bytes(data)
    out = ctypes.c_void_p()
    length = ctypes.c_size_t()
    err = _Error()
    status = function(data, len(data), *args, ctypes.byref(out), ctypes.byref(length),
                      ctypes.byref(err))
    if status:
        raise _refusal(status, err)
    try:
        return ctypes.string_at(out, length.value)
    finally:
        lib.trdcomp_release(out)


def _warnings_of(array, count):
    return [TrdcompWarning(w.message.decode("utf-8", "replace"), w.code, w.offset)
            for w in array[:count]]


def _with_warnings(call, capacity=8):
    """Runs call(array, capacity, count) and gives its status and warnings; runs it once more
    when the library found more warnings than the first array held."""
    while True:
        array = (_Warning * capacity)()
        count = ctypes.c_size_t()
        status = call(array, capacity, ctypes.byref(count))
        if count.value <= capacity or status:
            return status, _warnings_of(array, min(count.value, capacity))
        capacity = count.value


def _warn(found, stacklevel=3):
    for w in found:
        _warnings.warn(w, stacklevel=stacklevel)


def _direction_of(direction):
    return _DETECT if direction is None else _direction(direction)


def _restore(data, direction, flag, max_len):
    lib = _lib()
    data = bytes(data)
    out = ctypes.c_void_p()
    length = ctypes.c_size_t()
    err = _Error()

    def call(array, capacity, count):
        lib.trdcomp_release(out)  # the buffer of an earlier call that had too few warnings
        out.value = None
        return lib.trdcomp_restore_ex(data, len(data), _direction_of(direction), flag, max_len,
                                      ctypes.byref(out), ctypes.byref(length), array, capacity,
                                      count, ctypes.byref(err))

    status, found = _with_warnings(call)
    if status:
        raise _refusal(status, err)
    try:
        return Restored(ctypes.string_at(out, length.value), found)
    finally:
        lib.trdcomp_release(out)


def restore_raw(data, *, direction=None, flag=0, max_len=0):
    """The raw message of a packed (or raw) one, as the library restores it: a Restored (bytes)
    whose ``warnings`` list what was odd about the message; each is also issued through the
    warnings module as a TrdcompWarning. ``flag`` is the 2008 codec flag the sender used;
    ``max_len`` limits the restored length (0: the library's default)."""
    raw = _restore(data, direction, flag, max_len)
    _warn(raw.warnings)
    return raw


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


# ---- frames and explanations -------------------------------------------------------------

def _frame_of(data, direction, flag):
    lib = _lib()
    data = bytes(data)
    f = _Frame()
    err = _Error()

    def call(array, capacity, count):
        return lib.trdcomp_frame_of(data, len(data), _direction_of(direction), flag,
                                    ctypes.byref(f), array, capacity, count, ctypes.byref(err))

    status, found = _with_warnings(call)
    if status:
        raise _refusal(status, err)
    return f, found


def _none(v):
    return None if v < 0 else v


def _frame_dict(f):
    return {
        "direction": _DIRECTION_NAMES[f.direction], "codec": f.codec, "form": f.form,
        "packed": bool(f.packed), "function": f.function, "flags": f.flags,
        "header_length": f.header_length, "table_offset": _none(f.table_offset),
        "table_length": f.table_length, "records_offset": f.records_offset,
        "sections": [{"count": s.count, "sender_size": s.sender_size,
                      "record_size": s.record_size, "dictionary": bool(s.dictionary),
                      "count_offset": s.count_offset, "first_offset": _none(s.first_offset),
                      "present": s.present, "restored_offset": s.restored_offset}
                     for s in f.sections[:f.section_count]],
        "end": f.end, "restored_length": f.restored_length,
    }


def frame(data, *, direction=None, flag=0):
    """How the library reads a message (packed or raw), without decoding a record: a dict of
    its direction, codec, form, flags, header length, where the section table and the records
    lie, per section the count, record sizes and offsets (in the input and in the restored
    message), and the restored length; ``"warnings"`` as restore_raw gives them."""
    f, found = _frame_of(data, direction, flag)
    _warn(found)
    out = _frame_dict(f)
    out["warnings"] = found
    return out


def _header_values(data, direction):
    """The fields of the header at the start of ``data``, as a message dict's "header" holds
    them, and the header length as "length"."""
    kind = _HEADERS[direction]
    h = kind.from_buffer_copy(bytes(data[:ctypes.sizeof(kind)]).ljust(ctypes.sizeof(kind), b"\0"))
    out = {"length": h.header_length, "function": h.function, "flags": h.flags,
           "caller": _trim(h.caller), "count": h.count, "size": h.size}
    if direction == ANSWER:
        out["shortText"] = _trim(h.short_text).decode("latin-1")
        out["text"] = _trim(h.text).decode("latin-1")
    return out


def _decoded(f, values, at, width):
    if f.kind == KIND_GROUP:
        return None
    if f.kind in (KIND_TEXT, KIND_SHORT_TEXT, KIND_BLOCK, KIND_COUNTED_BLOCK, KIND_CHAR):
        got = _trim(values[at:at + width])
        return got if f.kind in (KIND_BLOCK, KIND_COUNTED_BLOCK) else got.decode("latin-1")
    return _value(f, values, at)


def explain(data, *, direction=None, flag=0, max_len=0):
    """What every byte of a message (packed or raw) holds: a list of dicts in input order whose
    stretches cover the input once. Each has ``offset``, ``length``, ``what`` (one of
    ITEM_NAMES), ``section``, ``record``, ``entry`` (a counted group's entry), ``unit``
    ("record", or "entry" for a 2011 dictionary entry), ``restored_offset`` (where it lands in
    the restored message), ``overrun`` (bytes it reads past its record or the input) and
    ``value``: a header field's value (``field`` names it as the message dict's header does),
    a field's decoded value as in a record dict (``field`` is its offset, ``group`` that of the
    group holding it), a count, length, size or index as a number, a presence map byte (with
    ``places``: per bit from 0x40 down, the field offset, "index" for the dictionary index, or
    None). Fields that do not apply are None."""
    lib = _lib()
    data = bytes(data)
    out = ctypes.POINTER(_Explanation)()
    err = _Error()
    status = lib.trdcomp_explain(data, len(data), _direction_of(direction), flag, max_len,
                                 ctypes.byref(out), ctypes.byref(err))
    if status:
        raise _refusal(status, err)
    try:
        e = out.contents
        f = e.frame
        values = ctypes.string_at(e.values, e.values_length) if e.values_length else b""
        items = [_Item.from_buffer_copy(e.items[i]) for i in range(e.item_count)]
        function, codec, direction = f.function, f.codec, f.direction
    finally:
        lib.trdcomp_release(out)
    header = _header_values(data, direction)
    shape = _describe(function, direction, codec) if items else None
    result = []
    for it in items:
        d = {"offset": it.offset, "length": it.length, "what": ITEM_NAMES[it.what],
             "field": None, "group": None, "section": _none(it.section),
             "record": _none(it.record), "entry": _none(it.entry),
             "unit": "entry" if it.unit == UNIT_ENTRY else "record",
             "restored_offset": _none(it.restored_offset), "overrun": it.overrun, "value": None}
        if it.what == ITEM_HEADER:
            d["field"] = HEADER_FIELDS[it.field]
            d["value"] = header.get(d["field"])
        elif it.what == ITEM_FIELD:
            fields = shape.sections[it.section].fields
            field = fields[it.field]
            d["field"] = field.offset
            if field.group >= 0:
                d["group"] = fields[field.group].offset
            d["value"] = _decoded(field, values, it.value_offset, it.width)
        elif it.what in (ITEM_TRAILING, ITEM_UNREAD, ITEM_HEADER_GAP, ITEM_TABLE_UNREAD,
                         ITEM_BODY):
            d["value"] = data[it.offset:it.offset + it.length]
        else:
            d["value"] = it.value
        if it.what == ITEM_PRESENCE_MAP:
            fields = shape.sections[it.section].fields
            d["places"] = [None if p == -1 else "index" if p == -2 else fields[p].offset
                           for p in it.place_field]
        result.append(d)
    return result


# ---- raw messages and dicts --------------------------------------------------------------

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


def _message(raw, f, codec):
    """The message dict of a restored message `raw` whose input the library framed as `f`:
    the header through the header structs, each section's records from where `f` says they
    lie in the restored message."""
    direction = f.direction
    shape = _describe(f.function, direction, codec)
    if f.section_count > len(shape.sections):
        raise TrdcompError(f"{f.section_count} sections, answer {f.function} has "
                           f"{len(shape.sections)} in the {codec} codec", ERROR_HEADER)
    values = _header_values(raw, direction)
    del values["length"]
    msg = {"direction": _DIRECTION_NAMES[direction], "function": values.pop("function"),
           "header": values}
    if f.form in (FORM_NO_BODY, FORM_PASS_THROUGH):
        # The body follows the fixed header, whatever the header length says (as explain()
        # shows it): the restore passes the whole message on as it came.
        msg["body"] = bytes(raw[ctypes.sizeof(_HEADERS[direction]):])
    else:
        sections = []
        for k, s in enumerate(f.sections[:f.section_count]):
            layout = shape.sections[k]
            at, size = s.restored_offset, s.record_size
            sections.append({"count": s.count, "size": size,
                             "records": [_record_dict(layout, raw[at + i * size:
                                                                  at + (i + 1) * size])
                                         for i in range(s.count)]})
        if direction == REQUEST:
            msg["records"] = sections[0]["records"] if sections else []
        else:
            msg["sections"] = sections
    if raw.warnings:
        msg["warnings"] = list(raw.warnings)
    return msg


def _decode(data, direction, flag, max_len):
    raw = _restore(data, direction, flag, max_len)
    f, _ = _frame_of(data, direction, flag)
    return _message(raw, f, f.codec)


def restore(data, *, direction=None, flag=0, max_len=0):
    """The message dict of a packed (or raw) message. When the restore found something odd,
    the dict's ``"warnings"`` lists it (TrdcompWarnings, also issued as Python warnings)."""
    msg = _decode(data, direction, flag, max_len)
    _warn(msg.get("warnings", ()))
    return msg


def _plain_answer_2011(data, direction):
    """A plain answer whose nibble names the 2011 codec: its header with the nibble cleared, and
    the nibble; None for any other message. The library reads every 2011 answer as packed (the
    codec has no plain form of answers, so a restored 2011 answer does not restore again), while
    the plain records of an answer are the same in either codec: such an answer is read as the
    plain 2008 answer it also is."""
    if direction is None:
        direction = _lib().trdcomp_direction(data, len(data))
    if direction != ANSWER or len(data) < ctypes.sizeof(_AnswerHeader):
        return None
    header = _AnswerHeader.from_buffer_copy(data)
    if header.flags & FLAG_PACKED or not header.flags & FLAG_NIBBLE_MASK:
        return None
    nibble = header.flags & FLAG_NIBBLE_MASK
    header.flags &= ~FLAG_NIBBLE_MASK
    return header, nibble


def from_raw(data, *, direction=None, max_len=0):
    """The message dict of a raw message (bytes). The library restores it first, so that what
    is read is what a restore of the message gives (records past its end as zeros, records of
    a header length other than 76 from where the library reads them), with the warnings that
    restore_raw gives. Unlike restore, it also reads a 2011 answer as restore_raw gives it."""
    data = bytes(data)
    direction = None if direction is None else _direction(direction)
    answer = _plain_answer_2011(data, direction)
    if answer is None:
        msg = _decode(data, direction, 0, max_len)
    else:
        header, nibble = answer
        plain = bytes(header) + data[ctypes.sizeof(header):]
        raw = _restore(plain, ANSWER, 0, max_len)
        restored = _AnswerHeader.from_buffer_copy(raw)
        restored.flags |= nibble
        raw = Restored(bytes(restored) + raw[ctypes.sizeof(restored):], raw.warnings)
        f, _ = _frame_of(plain, ANSWER, 0)
        msg = _message(raw, f, 2011)
    _warn(msg.get("warnings", ()))
    return msg


def _fill(array, data, what):
    if len(data) > len(array):
        raise TrdcompError(f"header {what}: {len(data)} bytes do not fit its {len(array)}")
    ctypes.memmove(array, data, len(data))


def _codec_of(flags):
    return 2011 if flags & FLAG_NIBBLE_MASK else 2008


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
    flags = int(h.get("flags", 0)) & 0xFF & ~FLAG_PACKED
    shape = _describe(number, direction, _codec_of(flags))
    header = _HEADERS[direction]()
    header.header_length = ctypes.sizeof(header)
    header.function = number
    caller = h.get("caller", b"")
    _fill(header.caller, bytes.fromhex(caller) if isinstance(caller, str) else bytes(caller),
          "caller data")
    if direction == ANSWER:
        _fill(header.short_text, h.get("shortText", "").encode("latin-1"), "shortText")
        _fill(header.text, h.get("text", "").encode("latin-1"), "text")
    header.count, header.size = h.get("count", 0), h.get("size", 0)
    if shape.form in (FORM_NO_BODY, FORM_PASS_THROUGH):
        if "records" in message or "sections" in message:
            raise TrdcompError(f"{number} has no record layout; give its bytes as 'body'")
        header.flags = flags
        return bytes(header) + bytes(message.get("body", b""))
    if direction == REQUEST:
        s = shape.sections[0]
        recs = [_record_bytes(s, r, f"records[{i}]")
                for i, r in enumerate(message.get("records", []))]
        header.flags = flags
        header.count, header.size = len(recs), s.record_size
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
    header.count = len(bodies[0]) if bodies else 0
    header.size = shape.sections[0].record_size
    table = b""
    if len(bodies) > 1:
        # The section table: its size, then each section's count and record size.
        header.flags = flags | FLAG_SECTION_TABLE
        pairs = [v for k, b in enumerate(bodies) for v in (len(b), shape.sections[k].record_size)]
        table = struct.pack(f"<{1 + len(pairs)}i", 4 + 4 * len(pairs), *pairs)
    else:
        header.flags = flags & ~FLAG_SECTION_TABLE
    return bytes(header) + table + b"".join(b"".join(b) for b in bodies)
