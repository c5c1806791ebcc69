// By-reference forms of the file, channel, option and memory operations.
//
// Each line names the form, its gfortran alias, the form-1 core, the number
// of text arguments and the adapters in the caller's order; the result
// argument and the hidden lengths follow (see sdf_ref_forms.h). Results are
// those of the form-1 operation, which reports under its own name.
#include "sdf_ref_forms.h"

namespace {

// Sdf_Filename with a result code: the name, empty for a channel not open.
int filename_core(int ch, char* buffer) {
    Sdf_FilenameTS(ch, buffer, 2049);
    return 0;
}

}  // namespace

using namespace sdfref;

extern "C" {

SDF_REF_FORM(Sdf_Open, sdf_open, Sdf_Open, 4, Ptr<int>, Text, Text, Text, Text)
SDF_REF_FORM(Sdf_Close, sdf_close, Sdf_Close, 1, In<int>, Text)
SDF_REF_FORM(Sdf_Refresh, sdf_refresh, Sdf_Refresh, 0, In<int>)
SDF_REF_FORM(Sdf_Write, sdf_write, Sdf_Write, 0, In<int>)
SDF_REF_FORM(Sdf_Flush, sdf_flush, Sdf_Flush, 0, In<int>)
SDF_REF_FORM(Sdf_Filename, sdf_filename, filename_core, 1, In<int>, TextBuf<2049>)
SDF_REF_FORM(Sdf_Is_Open, sdf_is_open, Sdf_Is_Open, 1, Text, Ptr<int>)
SDF_REF_FORM(Sdf_Is_Sdf, sdf_is_sdf, Sdf_Is_Sdf, 1, Text)
SDF_REF_FORM(Sdf_Lockfile_Info, sdf_lockfile_info, Sdf_Lockfile_Info, 2, Text, TextBuf<257>)
SDF_REF_FORM(Sdf_Delete_Lockfile, sdf_delete_lockfile, Sdf_Delete_Lockfile, 1, Text)
SDF_REF_FORM(Sdf_Free, sdf_free, Sdf_Free, 0, In<void*>)

SDF_REF_FORM(Sdf_Set_Opts, sdf_set_opts, Sdf_Set_Opts, 1, Text)
SDF_REF_FORM(Sdf_Set_Opts_Chan, sdf_set_opts_chan, Sdf_Set_Opts_Chan, 1, In<int>, Text)
SDF_REF_FORM(Sdf_Get_Opt, sdf_get_opt, Sdf_Get_Opt, 2, Text, TextBuf<256>)
SDF_REF_FORM(Sdf_Get_Opt_Chan, sdf_get_opt_chan, Sdf_Get_Opt_Chan, 2, In<int>, Text, TextBuf<256>)
SDF_REF_FORM(Sdf_Push, sdf_push, Sdf_Push, 0, In<int>)
SDF_REF_FORM(Sdf_Push_Chan, sdf_push_chan, Sdf_Push_Chan, 0, In<int>, In<int>)
SDF_REF_FORM(Sdf_Pop, sdf_pop, Sdf_Pop, 0)
SDF_REF_FORM(Sdf_Pop_Chan, sdf_pop_chan, Sdf_Pop_Chan, 0, In<int>)
SDF_REF_FORM(Sdf_Opt_Depth, sdf_opt_depth, Sdf_Opt_Depth, 0)
SDF_REF_FORM(Sdf_Opt_Depth_Chan, sdf_opt_depth_chan, Sdf_Opt_Depth_Chan, 0, In<int>)
SDF_REF_FORM(Sdf_Mutex_Lock, sdf_mutex_lock, Sdf_Mutex_Lock, 0, In<int>, In<int>)
SDF_REF_FORM(Sdf_Mutex_Unlock, sdf_mutex_unlock, Sdf_Mutex_Unlock, 0, In<int>)
SDF_REF_FORM(Sdf_Cache, sdf_cache, Sdf_Cache, 0, In<int>, In<int>, In<int>, In<int>)

}  // extern "C"
