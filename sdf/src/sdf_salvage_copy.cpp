// The copy half of salvage: the variables the reader passed go into a new
// file through the public writing interface, so the output is a file the
// library wrote itself and opens cleanly.
//
// Invariants: the output never takes the place of an existing file unless
// the caller asked for it; a variable is in the output whole or not at all
// (one whose data fail half way is deleted again); array data are copied in
// pieces of at most kPiece bytes, so no variable is ever held whole, and
// stretches that lie behind the end of the input (zeros) are skipped
// without reading, so a huge array that was never filled costs nothing. The
// process's options are left as they were: the general ones the output needs
// (byte order, name case) are set on a pushed level, the others on the
// output's channel alone.
#include <string.h>

#include <algorithm>
#include <vector>

#include "sdf_inner.h"
#include "sdf_salvage.h"

namespace {

constexpr int64_t kPiece = int64_t{1} << 20;

bool all_zero(const std::vector<unsigned char>& b, size_t n) {
    for (size_t i = 0; i < n; i++)
        if (b[i]) return false;
    return true;
}

// Copies the data of array variable i into the array defined on ch.
int copy_data(sdf_salvage* s, int i, const sdf_salvage_var* v, int ch) {
    int64_t total = 1;
    for (int k = 1; k <= v->dims[0]; k++) total *= v->dims[k];
    const int64_t per = std::max<int64_t>(1, kPiece / v->elen);
    std::vector<unsigned char> buf;
    for (int64_t first = 0; (first = sdf_salvage_stored(s, i, first)) < total; first += per) {
        const int64_t n = std::min(per, total - first);
        const size_t bytes = static_cast<size_t>(n * v->elen);
        buf.resize(bytes);
        if (int rc = sdf_salvage_read(s, i, first, n, buf.data())) return rc;
        // The output's chunks are new (or cleaned under Zero_Arrays), so
        // zeros need no writing: an array that was defined and never filled
        // stays as small as it was.
        if (all_zero(buf, bytes)) continue;
        int64_t start[8] = {v->dims[0]};
        int64_t rest = first;
        for (int k = 1; k <= v->dims[0]; k++) {
            start[k] = k < v->dims[0] ? rest % v->dims[k] : rest;
            rest /= v->dims[k];
        }
        if (int rc = Sdf_Write_Array64(ch, v->name, buf.data(), start, n)) return rc;
    }
    return 0;
}

int copy_var(sdf_salvage* s, int i, const sdf_salvage_var* v, int ch) {
    const int base = SDF_BASE_TYPE(v->type);
    if (SDF_IS_ARRAY(v->type)) {
        int rc = Sdf_Define_Array64(ch, v->name, base, v->elen, v->dims, v->units, v->desc);
        return rc ? rc : copy_data(s, i, v, ch);
    }
    if (base != SDF_CHAR_T) return Sdf_Write_Var(ch, v->name, base, v->value, v->units, v->desc);
    int rc = Sdf_Write_Char(ch, v->name, v->text, v->desc);
    return rc || !v->units ? rc : Sdf_Put_Units(ch, v->name, v->units);
}

}  // namespace

extern "C" int sdf_salvage_copy(sdf_salvage* s, const char* out, int replace, int32_t* outcome) {
    sdf_salvage_facts f;
    sdf_salvage_get_facts(s, &f);
    const int n = sdf_salvage_count(s);
    for (int i = 0; i < n; i++)
        if (outcome) outcome[i] = SDF_SALVAGE_LOST;
    int rc = Sdf_Push(-2);
    if (rc) return rc;
    rc = Sdf_Set_Opts(f.case_insensitive ? "Case_Sensitive=No" : "Case_Sensitive=Yes");
    if (!rc) rc = Sdf_Set_Opts(f.little_endian ? "Sex=LittleEndian" : "Sex=BigEndian");
    int ch = -1;
    if (!rc) rc = Sdf_Open(&ch, out, "BINARY", replace ? "FRESH" : "NEW", "WRITE");
    Sdf_Pop();
    if (rc) return rc;
    // A channel's first option block starts from the built-in defaults:
    // no prefix, commits on command.
    if ((rc = Sdf_Set_Opts_Chan(ch, "Zero_Arrays=Yes")) != 0) {
        Sdf_Close(ch, "DELETE");
        return rc;
    }
    for (int i = 0; i < n; i++) {
        const sdf_salvage_var* v = sdf_salvage_get(s, i);
        if (v->lost) continue;
        if (copy_var(s, i, v, ch) >= 3000) {
            Sdf_Delete(ch, v->name);
            if (outcome) outcome[i] = SDF_SALVAGE_NOT_WRITTEN;
        } else if (outcome) {
            outcome[i] = SDF_SALVAGE_COPIED;
        }
    }
    // An output whose commit failed can't be trusted: it goes.
    rc = Sdf_Close(ch, "KEEP");
    if (rc) Sdf_Close(ch, "DELETE");
    return rc;
}
