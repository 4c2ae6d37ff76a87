"""vxrcomn: the common functions of the VXR data-conversion tools, which
translate network data between PSLF EPC and KORA RAW files.

It reads and types the data lines of both formats, assigns a record's values
to named items, makes field text, progress messages, dictionary listings and
file names, and carries the tools' options. A ``progress`` argument is any
callable of one string: errors in the data are sent through it as messages
and shown in the result, not raised. Every argument, result, message and quirk:
docs/reference.md.

In this stub, parameter names, kinds and defaults are those of the built
module; the types say what the tools pass, not everything the module accepts.
Most functions also take any object where a string is shown and raise the
interpreter's own error for what they cannot use.
"""
import collections as collections
import math as math
import os as os
import re as re
import shlex as shlex
import string as string
import sys as sys
import tempfile as tempfile
import time as time
import winreg as winreg
from collections import OrderedDict
from typing import Any, Callable, Iterable, Mapping, Sequence, Tuple, Union

# Any callable of one string: the tool's message printer.
_Progress = Callable[[str], object]
# Item name -> descriptor ({"type": "int" | "float" | other, "defval": ...}).
_Format = Mapping[str, Mapping[str, Any]]
_PathName = Union[str, "os.PathLike[str]"]

__test__: dict[str, Any]

_PRG_INDENT: str
_PRG_INDENT2: str
_PRG_LINLEN: int
_LEN_BUSNUM: int
_ALLOWED_KORA_VRSNS: list[int]
_LATEST_KORA_VRSN: int
_ALLOWED_PSLF_VRSNS: list[int]
_LATEST_PSLF_VRSN: int
_WRAP_DBLQ: str
_WRAP_SGLQ: str
_WRAP_NO: str
_WRAP_CHAR: str
_WRAP_PRNT: str
_BELONGSTO: str
_BELONG2KORA: int
_BELONG2PSLF: int
_BELONG2BOTH: int
_PY_VRSN: int

class _SimpleObject:
    """An empty object carrying a tool's options as attributes; made by _get_arguments_as_attr."""
    def __getattr__(self, name: str) -> Any: ...

# File names and time stamps
def _file_PNX(basfnam: _PathName, /) -> Tuple[str, str, str, str, str]:
    """(folder, name with extension, name, extension, extension in lower case) of a file name."""
def _get_file_name(basfnam: _PathName, prefix: str = "", suffix: str = "", extn: str = ".txt",
                   path: _PathName = ...) -> str:
    """os.path.join(path, prefix + name + suffix + extn), name being basfnam's without folder and
    extension; path defaults to the working folder at import. Give extn with its dot: "raw" gives
    "Caseraw.raw" for "Case.EPC"."""
def _validate_file_extension(basfnam: _PathName, extn: str) -> str:
    """basfnam unchanged when its extension is extn (case-insensitive), else with its extension replaced
    by extn. Give extn with its dot."""
def _get_unique_tmp_file_name(basfnam: _PathName, extn: str, workdir: _PathName = ...) -> str:
    """A name free in workdir: basfnam's name (each of \\/:?"<>| made _) + "_YYYYmmdd_HHMMSS" + extn,
    or a tempfile name when that exists. Creates no file: open the name with "x"."""
def _get_time_stamp() -> str:
    """The local time as "%m-%d-%Y %I:%M:%S %p ", the trailing blank ready for a message."""

# Dictionary listings and progress messages
def _print_dict(prgmsg: str, dictnam: Mapping[Any, Any], progress: _Progress | None = None) -> None:
    """A titled listing of dictnam, one "key : value" line per item (or "  ---> EMPTY"), sent to progress
    in one call, printed when progress is false."""
def _print_dict_to_file(prgmsg: str, dictnam: Mapping[Any, Any], filename: _PathName) -> None:
    """Writes _print_dict's listing to filename (created or truncated) in the locale's encoding."""
def _progress_message_format_print(prgmsg: str, inlist: Iterable[Any], vtyp: str, prgfull: object = True,
                                   fmtsz: int | None = None, progress: _Progress | None = None) -> None:
    """A heading (_PRG_INDENT + prgmsg), then inlist's items several to a line of at most _PRG_LINLEN
    characters: vtyp "int" each with width fmtsz, "tuple" each as a tuple's text, another vtyp none.
    progress gets the text, then a line end; without progress it is printed. prgfull false: the
    heading alone, in one call."""

# PSLF EPC lines
def _split_data_line_text_pslf(linetxt: str, /) -> list[str]:
    """A PSLF EPC line, stripped, split at runs of blanks (quotes, commas and tabs are ordinary
    characters); a blank line gives [""]."""
def _get_values_from_data_line_text_pslf(recgrp: str, lnumstr: object, linetxt: str,
                                         progress: _Progress) -> list[str]:
    """A PSLF EPC data line's items: commas and apostrophes made _, then split as a POSIX shell does
    (double-quoted text is one item). Uneven double quotes: a message through progress and [].
    A line ending in a backslash raises TypeError."""

# Field text
def _convert_float_to_string(inval: float, /) -> str:
    """A number as field text: "{:g}" (six significant digits), with ".0" added when that has no point
    or exponent."""
def _get_wrapped_string(instr: str, /) -> str:
    """instr between two _WRAP_PRNT quotes; unchanged when it holds one anywhere."""
def _get_unwrapped_string(instr: str | None, /) -> str:
    """instr with every _WRAP_PRNT quote removed; None gives ""."""
def _get_sized_string(instr: str | None, outsiz: int, sfxsiz: int = 0, sfxlist: Iterable[object] = ...) -> str:
    """A fixed-width field: instr unwrapped, cut or blank-padded to outsiz - sfxsiz characters, then each
    of sfxlist (str, unwrapped), all between two _WRAP_CHAR quotes. ValueError if sfxsiz > outsiz."""

# PSLF EPC records
def _epc_assign_data_values_common(recgrp: str, lnumstr: object, inputvals_dict: Mapping[str, str],
                                   frmtdct: _Format, progress: _Progress) -> Tuple[bool, OrderedDict[str, Any]]:
    """Types a PSLF EPC record's texts (inputvals_dict: name -> text) by frmtdct. Returns (ierr, values):
    values an OrderedDict in frmtdct's order, a default for a name not given; at the first text that
    does not convert, ierr True, the values before it, and a message through progress."""
def _epc_assign_data_values(recgrp: str, lnumstr: object, valslist: Sequence[str], vnamlist: Sequence[str],
                            frmtdct: _Format, progress: _Progress) -> Tuple[bool, OrderedDict[str, Any]]:
    """Pairs vnamlist with valslist (zip: surplus names take defaults), leaves out the separators (semi,
    semi1, semi2) and types them as _epc_assign_data_values_common: (ierr, values)."""
def _epc_check_frmt_dc_bus_rec(valslist: Sequence[str], vnamlist: object, frmtdct: object,
                               progress: _Progress) -> Tuple[bool, bool]:
    """Finds a DC bus record's first ":" item. Returns (ierr, has_long_id): has_long_id when it is the
    fifth item (no long id at the fourth); ierr, with one message naming no line, when it is
    elsewhere or missing.
    vnamlist and frmtdct are not used."""
def _epc_assign_data_values_svd(recgrp: str, lnumstr: object, valslist: Sequence[str],
                                vnamsdct: Mapping[str, Sequence[str]], frmtdct: _Format,
                                progress: _Progress) -> Tuple[bool, dict[str, Any]]:
    """Assigns an SVD record: the names are vnamsdct's "begin_all" + the list of the record's type (the
    item at "ty") + "end_all", then as _epc_assign_data_values: (ierr, values). A type not 0 to 7: a
    message and (True, {}). A record too short for its type raises UnboundLocalError."""
def _epc_assign_data_values_qtable(recgrp: str, lnumstr: object, valslist: Sequence[str], vnamlist: Sequence[str],
                                   frmtdct: _Format, progress: _Progress) -> Tuple[bool, OrderedDict[str, Any]]:
    """Assigns a Q table record: the items up to the first ":", then the (p, qmax, qmin) triples not all
    0.0, then as _epc_assign_data_values: (ierr, values). An empty valslist raises UnboundLocalError."""
def _pslf_seq_assign_data_values(recgrp: str, lnumstr: object, valslist: Sequence[str], frmtdct: _Format,
                                 progress: _Progress) -> Tuple[bool, OrderedDict[str, Any]]:
    """Assigns items by position to frmtdct's names (a separator takes its item and stores nothing; "!"
    is kept as written; names past the items take defaults). Returns (ierr, values) as
    _epc_assign_data_values_common does."""

# Options and version
def _get_arguments_as_attr(default_args_dict: Mapping[str, Any], kwds: Mapping[str, Any]) -> _SimpleObject:
    """A new _SimpleObject with one attribute per declared option: default_args_dict maps a name to a
    default or to {"value": default, "allowed": container}; a kwds value is converted to an int or
    float default's type, a bad or disallowed one silently takes the default. A "workdir" option's
    folder is created."""
def _check_kora_version(kora_vrsn: object, /) -> int:
    """The KORA RAW version to use: kora_vrsn when in _ALLOWED_KORA_VRSNS (a float truncated, "33.x" read
    as 33), else _LATEST_KORA_VRSN with a printed notice. A str without a point is never allowed: pass
    int(item)."""

# Record-group messages
def _recgrp_name_prgmsg(recgrp: str, progress: _Progress) -> None:
    """Sends the heading " ------------- Reading KORA record group: {Recgrp Title}" through progress."""
def _recgrp_name_prgmsg_numrecs(nrec: int, progress: _Progress) -> None:
    """Sends a record group's count through progress: "{nrec} record" for 1, else "{nrec} records"."""

# KORA RAW lines and records
def _check_eof_blank_line_kora(line: str, /) -> Tuple[bool, bool]:
    """Returns (eof, blank_line): eof for "" (end of file); blank_line for an empty or blank line or one
    that starts with "@!" (a comment)."""
def _split_textline_kora(linetxt: str, /) -> list[str]:
    """A KORA RAW data line's items: commas, blanks, tabs and line ends separate; quoted text is one
    item (every quote removed); "#" ends the line; an empty item between commas is "_ifc". An unclosed
    quote raises Exception."""
def _split_textline_kora_keyvalue_pair(recgrp: str, line: str,
                                       progress: _Progress) -> Tuple[bool, bool, str | int, list[str]]:
    """Splits a KORA RAW line whose items may be "NAME = value" (each becomes "NAME=value"). Returns
    (found_q, error, first, items): found_q when the first item is q or Q; error, with a message
    through progress, when there is no first item (first ""); first the first item, "0" as 0."""
def _split_txtline_to_values_kora(recgrp: str, line: str, frst_name: str, frst_type: str,
                                  progress: _Progress) -> Tuple[bool, bool, str | int | float, list[str]]:
    """Reads a KORA RAW record line, typing its first item by frst_type ("int" or "float"). Returns
    (found_q, error, first, items): found_q when the first item is q or Q (first untyped); error,
    with messages through progress, when it is missing or does not convert; first equals 0 at a
    group's end. Another frst_type types only "0", and raises UnboundLocalError for a missing item."""
def _split_txtline_to_values_kora_no_check_vlist(line: str, /) -> Tuple[bool, str | int, list[str]]:
    """Splits a KORA RAW line, quietly: (found_q, first, items); first is "0" as 0, "" for an empty line."""
def _split_txtline_to_values_kora_no_check(line: str, /) -> Tuple[bool, str | int]:
    """As _split_txtline_to_values_kora_no_check_vlist without the items: (found_q, first)."""
def _check_zcorec_table_kora(vlst: Iterable[object], /) -> Tuple[bool, list[float]]:
    """An impedance correction table row: (endtbl, values), the items as floats, endtbl when their sum is
    0.0 (the table's end); (False, []) when an item is not a number."""
def _split_txtline_to_values_kora_no_check_00(line: str, /) -> Tuple[bool, str | int]:
    """As _split_txtline_to_values_kora_no_check_vlist without the items: (found_q, first)."""
def _list_of_key_value_pairs_to_dict_kora(vlist: Iterable[str], frmt_dict: _Format) -> OrderedDict[str, Any]:
    """Items "NAME=value" as an OrderedDict of frmt_dict's fields in its order: a given value (names
    upper-cased: frmt_dict's keys must be upper case) converted by "type", else "defval". A given
    field of another type takes the value of the field before it."""
def _list_of_ratings_items_to_dict_kora(recgrp: str, vlist: Sequence[str], frmt_dict: _Format, line: str,
                                        progress: _Progress) -> Tuple[int | None, OrderedDict[str, Any]]:
    """A rating record's items (number, name, description) against frmt_dict's first three fields.
    Returns (number, fields), fields an OrderedDict; (None, OrderedDict()) with a message through
    progress when the number is missing or not an integer."""
def _print_kora_substation_block_data_as_stored(sub_block_data_dict: Mapping[Any, Mapping[str, Any]],
                                                progress: _Progress) -> None:
    """Echoes stored substation blocks (number -> "id", "node", "swd", "term" records) as RAW-like lines,
    one progress call per line."""
