// Functions whose subsystem has not landed yet.  Each has its final name,
// parameters and text signature, and raises NotImplementedError; a subsystem
// moves its definitions out of this file as it implements them.
#include "vxr.hpp"

namespace {

struct Pending {
    const char* name;
    template <typename... Args>
    vxr::Ref operator()(vxr::State&, Args&&...) const {
        PyErr_Format(PyExc_NotImplementedError, "%s is not implemented yet", name);
        vxr::fail(VXR_HERE);
    }
};

}  // namespace

// --- messages, dictionaries, file names ------------------------------------
VXR_DEF_ONE_ARG(_file_PNX, "basfnam", Pending{"_file_PNX"})
VXR_DEF_ARGS(_get_file_name, "($module, /, basfnam, prefix='', suffix='', extn='.txt', path=None)", "O|OOOO", 1,
             Pending{"_get_file_name"}, "basfnam", "prefix", "suffix", "extn", "path")
VXR_DEF_ARGS(_validate_file_extension, "($module, /, basfnam, extn)", "OO", 2, Pending{"_validate_file_extension"},
             "basfnam", "extn")
VXR_DEF_ARGS(_get_unique_tmp_file_name, "($module, /, basfnam, extn, workdir=None)", "OO|O", 2,
             Pending{"_get_unique_tmp_file_name"}, "basfnam", "extn", "workdir")
VXR_DEF_NOARGS(_get_time_stamp, Pending{"_get_time_stamp"})
VXR_DEF_ARGS(_print_dict, "($module, /, prgmsg, dictnam, progress=None)", "OO|O", 2, Pending{"_print_dict"},
             "prgmsg", "dictnam", "progress")
VXR_DEF_ARGS(_print_dict_to_file, "($module, /, prgmsg, dictnam, filename)", "OOO", 3,
             Pending{"_print_dict_to_file"}, "prgmsg", "dictnam", "filename")
VXR_DEF_ARGS(_progress_message_format_print,
             "($module, /, prgmsg, inlist, vtyp, prgfull=True, fmtsz=None, progress=None)", "OOO|OOO", 3,
             Pending{"_progress_message_format_print"}, "prgmsg", "inlist", "vtyp", "prgfull", "fmtsz", "progress")
VXR_DEF_ARGS(_recgrp_name_prgmsg, "($module, /, recgrp, progress)", "OO", 2, Pending{"_recgrp_name_prgmsg"},
             "recgrp", "progress")
VXR_DEF_ARGS(_recgrp_name_prgmsg_numrecs, "($module, /, nrec, progress)", "OO", 2,
             Pending{"_recgrp_name_prgmsg_numrecs"}, "nrec", "progress")

// --- field text -------------------------------------------------------------
VXR_DEF_ONE_ARG(_convert_float_to_string, "inval", Pending{"_convert_float_to_string"})
VXR_DEF_ONE_ARG(_get_wrapped_string, "instr", Pending{"_get_wrapped_string"})
VXR_DEF_ONE_ARG(_get_unwrapped_string, "instr", Pending{"_get_unwrapped_string"})
VXR_DEF_ARGS(_get_sized_string, "($module, /, instr, outsiz, sfxsiz=0, sfxlist=[])", "OO|OO", 2,
             Pending{"_get_sized_string"}, "instr", "outsiz", "sfxsiz", "sfxlist")

// --- options and version check ----------------------------------------------
VXR_DEF_ARGS(_get_arguments_as_attr, "($module, /, default_args_dict, kwds)", "OO", 2,
             Pending{"_get_arguments_as_attr"}, "default_args_dict", "kwds")
VXR_DEF_ONE_ARG(_check_kora_version, "kora_vrsn", Pending{"_check_kora_version"})

// --- KORA RAW reading -------------------------------------------------------
VXR_DEF_ONE_ARG(_check_eof_blank_line_kora, "line", Pending{"_check_eof_blank_line_kora"})
VXR_DEF_ONE_ARG(_split_textline_kora, "linetxt", Pending{"_split_textline_kora"})
VXR_DEF_ARGS(_split_textline_kora_keyvalue_pair, "($module, /, recgrp, line, progress)", "OOO", 3,
             Pending{"_split_textline_kora_keyvalue_pair"}, "recgrp", "line", "progress")
VXR_DEF_ARGS(_split_txtline_to_values_kora, "($module, /, recgrp, line, frst_name, frst_type, progress)", "OOOOO", 5,
             Pending{"_split_txtline_to_values_kora"}, "recgrp", "line", "frst_name", "frst_type", "progress")
VXR_DEF_ONE_ARG(_split_txtline_to_values_kora_no_check_vlist, "line",
                Pending{"_split_txtline_to_values_kora_no_check_vlist"})
VXR_DEF_ONE_ARG(_split_txtline_to_values_kora_no_check, "line", Pending{"_split_txtline_to_values_kora_no_check"})
VXR_DEF_ONE_ARG(_check_zcorec_table_kora, "vlst", Pending{"_check_zcorec_table_kora"})
VXR_DEF_ONE_ARG(_split_txtline_to_values_kora_no_check_00, "line",
                Pending{"_split_txtline_to_values_kora_no_check_00"})
VXR_DEF_ARGS(_list_of_key_value_pairs_to_dict_kora, "($module, /, vlist, frmt_dict)", "OO", 2,
             Pending{"_list_of_key_value_pairs_to_dict_kora"}, "vlist", "frmt_dict")
VXR_DEF_ARGS(_list_of_ratings_items_to_dict_kora, "($module, /, recgrp, vlist, frmt_dict, line, progress)", "OOOOO",
             5, Pending{"_list_of_ratings_items_to_dict_kora"}, "recgrp", "vlist", "frmt_dict", "line", "progress")

// --- substation listing -----------------------------------------------------
VXR_DEF_ARGS(_print_kora_substation_block_data_as_stored, "($module, /, sub_block_data_dict, progress)", "OO", 2,
             Pending{"_print_kora_substation_block_data_as_stored"}, "sub_block_data_dict", "progress")
