"""The module's hot functions written in plain Python with the standard
library (re, shlex, collections): the baseline the benchmark measures the
module against, and a second oracle for the tests.  Same algorithms, same
messages, same quirks."""
import collections
import re
import shlex

_PRG_INDENT = " " * 5
_PRG_INDENT2 = " " * 9
_WRAP_CHAR = "'"


# --- KORA RAW -----------------------------------------------------------------

def _check_eof_blank_line_kora(line):
    eof = len(line) == 0
    blank_line = len(line.strip()) == 0
    if not blank_line and line[:2] == "@!":
        blank_line = True
    return eof, blank_line


def _split_textline_kora(linetxt):
    linetxt = linetxt.strip()
    if not linetxt:
        return []
    txt = linetxt
    if txt[-1] == ",":
        txt = txt[:-1]
    p = re.compile("(, *,)")
    nn = 1
    while nn != 0:
        txt, nn = p.subn(",_ifc,", txt)
    if txt[0] == ",":
        txt = "_ifc" + txt
    lexer = shlex.shlex(txt)
    lexer.whitespace += ","
    lexer.whitespace_split = True
    try:
        vlist = list(lexer)
    except Exception:
        raise Exception("Error reading line: " + linetxt)
    return [e.replace("'", "").replace('"', "") for e in vlist]


def _split_textline_kora_keyvalue_pair(recgrp, line, progress):
    foundQrec = False
    frst_error = False
    ltxt = re.compile("( *= *)").sub("=", line)
    vlist = _split_textline_kora(ltxt)
    try:
        frst_val = vlist[0]
    except Exception:
        frst_val = "_ifc"
    if frst_val == "_ifc":
        frst_error = True
        frst_val = ""
    if frst_error:
        prgmsg = " {0}Error - Reading '{1}', record ignored.\n".format(_PRG_INDENT, recgrp.title())
        prgmsg += " {0}{1}".format(_PRG_INDENT2, line)
        progress(prgmsg)
    else:
        if frst_val.strip().lower() == "q":
            foundQrec = True
    if not foundQrec:
        fv = frst_val.strip()
        if fv == "0":
            frst_val = int(fv)
    return foundQrec, frst_error, frst_val, vlist


def _split_txtline_to_values_kora(recgrp, line, frst_name, frst_type, progress):
    foundQrec = False
    frst_error = False
    vlist = _split_textline_kora(line)
    try:
        frst_val = vlist[0]
    except Exception:
        frst_val = "_ifc"
    if frst_val == "_ifc":
        frst_error = True
        frst_val = ""
    if frst_error:
        prgmsg = " {0}Error - Reading '{1}', data item '{2}' not provided, record ignored.\n".format(
            _PRG_INDENT, recgrp.title(), frst_name)
        prgmsg += " {0}{1}".format(_PRG_INDENT2, line)
        progress(prgmsg)
    else:
        fv = frst_val.strip()
        if fv.lower() == "q":
            foundQrec = True
    if not foundQrec:
        if frst_type == "int":
            try:
                frst_val = int(frst_val)
            except Exception:
                frst_error = True
                which_type = "integer"
        elif frst_type == "float":
            try:
                frst_val = float(frst_val)
            except Exception:
                frst_error = True
                which_type = "float"
        else:
            fv = frst_val.strip()
            if fv == "0":
                frst_val = int(fv)
        if frst_error:
            prgmsg = " {0}Error - Reading '{1}', {2}={3}, {4} value required, record ignored.\n".format(
                _PRG_INDENT, recgrp.title(), frst_name, frst_val, which_type)
            prgmsg += " {0}{1}".format(_PRG_INDENT2, line)
            progress(prgmsg)
    return foundQrec, frst_error, frst_val, vlist


def _split_txtline_to_values_kora_no_check_vlist(line):
    foundQrec = False
    vlist = _split_textline_kora(line)
    try:
        frst_val = vlist[0]
    except Exception:
        frst_val = ""
    if frst_val:
        fv = frst_val.strip()
        if fv == "0":
            frst_val = int(fv)
        elif fv.lower() == "q":
            foundQrec = True
    return foundQrec, frst_val, vlist


def _split_txtline_to_values_kora_no_check(line):
    foundQrec, frst_val, vlist = _split_txtline_to_values_kora_no_check_vlist(line)
    return foundQrec, frst_val


def _split_txtline_to_values_kora_no_check_00(line):
    foundQrec = False
    vlist = _split_textline_kora(line)
    try:
        frst_val = vlist[0]
    except Exception:
        frst_val = ""
    if frst_val:
        fv = frst_val.strip()
        if fv == "0":
            frst_val = int(fv)
        elif fv.lower() == "q":
            foundQrec = True
    return foundQrec, frst_val


def _list_of_key_value_pairs_to_dict_kora(vlist, frmt_dict):
    tdct = {}
    for each in vlist:
        elst = each.split("=")
        vnam = elst[0].upper()
        vval = elst[1]
        tdct[vnam] = vval
    tdct2 = collections.OrderedDict()
    for vnam, fdct in list(frmt_dict.items()):
        defval = fdct["defval"]
        vartyp = fdct["type"]
        if vnam not in tdct:
            v = defval
        else:
            try:
                if vartyp == "int":
                    v = int(tdct[vnam])
                elif vartyp == "float":
                    v = float(tdct[vnam])
            except Exception:
                v = defval
        tdct2[vnam] = v
    return tdct2


# --- PSLF EPC -----------------------------------------------------------------

def _record_ignored(recgrp, lnumstr):
    return "     '" + str(recgrp.upper()) + "' record specified on line " + str(lnumstr) + " ignored.\n"


def _split_data_line_text_pslf(linetxt):
    linetxt = linetxt.strip()
    while linetxt.find("  ") > 0:
        linetxt = linetxt.replace("  ", " ")
    return linetxt.split(" ")


def _get_values_from_data_line_text_pslf(recgrp, lnumstr, linetxt, progress):
    retlist = []
    ndbleqt = linetxt.count('"')
    if ndbleqt % 2:
        errmsg = (" Character Data items not specified correctly using double quotes, uneven number (%d) "
                  "of double quotes found.\n" % ndbleqt)
        errmsg += _record_ignored(recgrp, lnumstr)
        progress(errmsg)
        return retlist
    try:
        linetxt = linetxt.replace(",", "_")
        linetxt = linetxt.replace("'", "_")
        retlist = shlex.split(linetxt)
    except Exception:
        errmsg = (" Could not interpret data line into its data items, check data for matching quotes, "
                  "illegal characters.\n" % ndbleqt)
        errmsg += _record_ignored(recgrp, lnumstr)
        progress(errmsg)
        return []
    return retlist


def _epc_assign_data_values_common(recgrp, lnumstr, inputvals_dict, frmtdct, progress):
    ierr = False
    valsdict = collections.OrderedDict()
    for nam, vdct in list(frmtdct.items()):
        vtyp = vdct["type"]
        if nam in inputvals_dict:
            vals = inputvals_dict[nam]
            if vtyp == "int":
                try:
                    v = int(vals)
                    valsdict[nam] = v
                except Exception:
                    errmsg = " Integer Data item '" + nam + "' not specified correctly. Input specified= " + str(vals) + "\n"
                    errmsg += _record_ignored(recgrp, lnumstr)
                    progress(errmsg)
                    ierr = True
                    break
            elif vtyp == "float":
                try:
                    v = float(vals)
                    valsdict[nam] = v
                except Exception:
                    errmsg = " Float Data item '" + nam + "' not specified correctly. Input specified= " + str(vals) + "\n"
                    errmsg += _record_ignored(recgrp, lnumstr)
                    progress(errmsg)
                    ierr = True
                    break
            else:
                valsdict[nam] = "{1}{0}{1}".format(vals, _WRAP_CHAR)
        else:
            if vtyp == "int":
                valsdict[nam] = 0
            elif vtyp == "float":
                valsdict[nam] = 0.0
            else:
                valsdict[nam] = "{1}{0}{1}".format(" ", _WRAP_CHAR)
    return ierr, valsdict


def _epc_assign_data_values(recgrp, lnumstr, valslist, vnamlist, frmtdct, progress):
    tmp_dict = {}
    for nam, val in zip(vnamlist, valslist):
        if nam not in ("semi", "semi1", "semi2"):
            tmp_dict[nam] = val
    ierr, valsdict = _epc_assign_data_values_common(recgrp, lnumstr, tmp_dict, frmtdct, progress)
    return ierr, valsdict


def _pslf_seq_assign_data_values(recgrp, lnumstr, valslist, frmtdct, progress):
    ierr = False
    valsdict = collections.OrderedDict()
    for nam, val in zip(list(frmtdct.keys()), valslist):
        if nam == "semi" or nam == "semi1" or nam == "semi2":
            continue
        if val.strip() == "!":
            valsdict[nam] = val
            continue
        vtyp = frmtdct[nam]["type"]
        if vtyp == "int":
            try:
                v = int(val)
                valsdict[nam] = v
            except Exception:
                errmsg = " Integer Data item '" + nam + "' not specified correctly. Input specified= " + str(val) + "\n"
                errmsg += _record_ignored(recgrp, lnumstr)
                progress(errmsg)
                ierr = True
                break
        elif vtyp == "float":
            try:
                v = float(val)
                valsdict[nam] = v
            except Exception:
                errmsg = " Float Data item '" + nam + "' not specified correctly. Input specified= " + str(val) + "\n"
                errmsg += _record_ignored(recgrp, lnumstr)
                progress(errmsg)
                ierr = True
                break
        else:
            valsdict[nam] = "{1}{0}{1}".format(val, _WRAP_CHAR)
    nkeys = len(frmtdct.keys())
    if len(valslist) < nkeys:
        keys = list(frmtdct.keys())
        for ii in range(len(valslist), nkeys):
            nam = keys[ii]
            vtyp = frmtdct[nam]["type"]
            if vtyp == "int":
                valsdict[nam] = 0
            elif vtyp == "float":
                valsdict[nam] = 0.0
            else:
                valsdict[nam] = "{1}{0}{1}".format(" ", _WRAP_CHAR)
    return ierr, valsdict
