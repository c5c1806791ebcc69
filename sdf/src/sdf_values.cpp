// Operations on one variable as a whole: its type, element length and
// dimensions, reshaping an array, scalars and character scalars, and the
// address of a value on an internal file.
//
// Each public operation looks up the channel, takes the file's lock, runs
// one core step that reports its own failures under a lower-case name, and
// passes a failure up with the chain rule. What the public form finds itself
// (the channel, a dimension that doesn't fit 32 bits, a channel that isn't
// internal, the overwrite warnings) comes back as its own code.
//
// Invariants kept: a character scalar's elen is the length of its string and
// its slot (record offset 40) is block 0 exactly when the string is empty;
// an array's dimension slot holds rank + 1 i64 values with 1 <= rank <= 7.
// A replacement slot is allocated before the old one is freed, and a
// write of a whole variable makes its new slots before it clears the old
// value, so a failure leaves the variable as it was.
#include <string.h>

#include "sdf_inner.h"

namespace {

// The frame of a public operation: channel, lock, core, chain rule.
template <class Fn>
int run_read(int channel, const char* R, const char* core, Fn&& fn) {
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_read_begin(channel, R, &f, &taken)) return rc;
    int rc = fn(f);
    sdf_chan_read_end(f, taken);
    return rc ? sdf_error_chain(R, rc, core) : 0;
}

template <class Fn>
int run_write(int channel, const char* R, const char* core, Fn&& fn) {
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_write_begin(channel, R, &f, &taken)) return rc;
    int rc = fn(f);
    sdf_chan_write_end(f, taken);
    if (rc == 2010 || rc == 2011) return rc;  // reported by the public form itself
    return rc ? sdf_error_chain(R, rc, core) : 0;
}

int null_arg(const char* R) { return sdf_error(R, 4001, "A required argument is null."); }

sdf_slotref dims_ref(const sdf_varrec* r) { return sdf_slotref{r->value.i[0], r->value.i[1]}; }
sdf_slotref cval_ref(const sdf_varrec* r) { return sdf_slotref{r->value.i[2], r->value.i[3]}; }

// The dimension array of an array variable (rank 0 without a slot).
int read_dims(fcb* f, const ventry* row, int64_t dims[8], const char* R) {
    for (int i = 0; i < 8; i++) dims[i] = 0;
    sdf_slotref ref = dims_ref(row->record);
    if (ref.block == 0) return 0;
    int err = 0;
    const auto* p = static_cast<const unsigned char*>(sdf_get_slot(f, SDF_CH_ARRDIM, 0, &ref, &err));
    if (!p) return sdf_error_chain(R, err, "sdf_get_slot");
    // Slot payloads are word aligned only: the i64 values are copied out.
    int64_t rank = 0;
    memcpy(&rank, p, sizeof rank);
    if (rank < 1 || rank > SDF_MAX_RANK)
        return sdf_corrupt(R, f->file, "rank %lld of \"%s\" out of range.", static_cast<long long>(rank),
                           row->name);
    memcpy(dims, p, static_cast<size_t>(rank + 1) * sizeof(int64_t));
    return 0;
}

// Product of the extents; false when it overflows.
bool product(const int64_t* dims, int64_t* out) {
    int64_t n = 1;
    for (int64_t i = 1; i <= dims[0]; i++)
        if (__builtin_mul_overflow(n, dims[i], &n)) return false;
    *out = dims[0] < 1 ? 0 : n;
    return true;
}

bool dims_ok(const int64_t* dims) {
    if (dims[0] < 1 || dims[0] > SDF_MAX_RANK) return false;
    for (int64_t i = 1; i <= dims[0]; i++)
        if (dims[i] < 0) return false;
    return true;
}

int put_dims(fcb* f, const char* name, const int64_t* dims) {
    static const char* R = "sdf_put_dims";
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, name, full);
    if (!dims_ok(dims)) return sdf_error(R, 3021, full);
    int rc = 0;
    ventry* row = sdf_lookup(f, R, name, SDF_WANT_ARRAY, &rc);
    if (!row) return rc;
    int64_t old[8];
    if ((rc = read_dims(f, row, old, R))) return rc;
    int64_t a = 0, b = 0;
    if (!product(old, &a) || !product(dims, &b) || a != b) return sdf_error(R, 3021, full);
    sdfile* s = f->file;
    sdf_varrec* r = row->record;
    sdf_slotref ref = dims_ref(r);
    if (old[0] != dims[0]) {
        sdf_slotref fresh{0, 0};
        int err = 0;
        if (!sdf_get_slot(f, SDF_CH_ARRDIM, static_cast<int>(dims[0] + 1), &fresh, &err))
            return sdf_error_chain(R, err, "sdf_get_slot");
        if ((rc = sdf_free_slot(f, SDF_CH_ARRDIM, &ref))) return sdf_error_chain(R, rc, "sdf_free_slot");
        ref = fresh;
        r->value.i[0] = ref.block;
        r->value.i[1] = ref.index;
    }
    int err = 0;
    void* p = sdf_get_slot(f, SDF_CH_ARRDIM, 0, &ref, &err);
    if (!p) return sdf_error_chain(R, err, "sdf_get_slot");
    memcpy(p, dims, static_cast<size_t>(dims[0] + 1) * sizeof(int64_t));
    sdf_mark(s, ref.block);
    sdf_touch(s, r, row->block, 1);
    return 0;
}

// Stores a character scalar's string (null counts as empty).
int store_cval(fcb* f, ventry* row, const char* text, const char* R) {
    sdf_varrec* r = row->record;
    const size_t n = text ? strlen(text) : 0;
    if (n > static_cast<size_t>(INT32_MAX / 2)) return sdf_error(R, 4001, "String too long for a slot.");
    sdf_slotref fresh{0, 0};
    if (n > 0) {
        int err = 0;
        char* slot = static_cast<char*>(sdf_get_slot(f, SDF_CH_CHRVAR, static_cast<int>(n), &fresh, &err));
        if (!slot) return sdf_error_chain(R, err, "sdf_get_slot");
        memcpy(slot, text, n + 1);
    }
    sdf_slotref old = cval_ref(r);
    int rc = sdf_free_slot(f, SDF_CH_CHRVAR, &old);
    r->value.i[2] = fresh.block;
    r->value.i[3] = fresh.index;
    r->elen = static_cast<int32_t>(n);
    sdf_touch(f->file, r, row->block, 1);
    return rc ? sdf_error_chain(R, rc, "sdf_free_slot") : 0;
}

// Stages units and description for a write of `full` (prefixed), unless
// option Overwrite keeps an existing variable from changing anyway.
int stage_texts(fcb* f, const char* full, const char* units, const char* desc, int with_units, sdf_texts* t,
                const char* R) {
    *t = sdf_texts{};
    const ventry* old = sdf_find_var(f, full, nullptr);
    if (old && sdf_opt_int(f, SDF_OPT_OVERWRITE) != 1) return 0;
    const int rc = sdf_texts_stage(f, old, units, desc, with_units, t);
    return rc ? sdf_error_chain(R, rc, "sdf_texts_stage") : 0;
}

int write_var(fcb* f, const char* name, int type, const void* value, const char* units, const char* desc) {
    static const char* R = "Sdf_Write_Var";  // the warnings come back as they are
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, name, full);
    if (!Sdf_Valid_Name(full)) return sdf_error("sdf_write_var", 3005, full);
    if (type == SDF_CHAR_T || type >= 100 || !sdf_valid_base(type))
        return sdf_error("sdf_write_var", 3020, type, full);
    // Units and description are made first: what can fail comes before the
    // variable changes, so a failed replacement leaves it as it was.
    sdf_texts texts;
    int rc = stage_texts(f, full, units, desc, 1, &texts, "sdf_write_var");
    if (rc) return rc;
    ventry* row = sdf_value_row(f, R, name, &rc);
    if (!row) {
        sdf_texts_drop(f, &texts);
        return rc;
    }
    const int warned = rc;
    sdf_varrec* r = row->record;
    r->type = type;
    r->elen = sdf_type_elen(type);
    memset(&r->value, 0, sizeof r->value);
    memcpy(&r->value, value, static_cast<size_t>(r->elen));
    sdf_touch(f->file, r, row->block, 1);
    if ((rc = sdf_texts_install(f, row, &texts))) return sdf_error_chain("sdf_write_var", rc, "sdf_texts_install");
    if ((rc = sdf_commit_if_always(f, "sdf_write_var"))) return rc;
    return warned;
}

int write_char(fcb* f, const char* name, const char* text, const char* desc) {
    static const char* R = "Sdf_Write_Char";
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, name, full);
    if (!Sdf_Valid_Name(full)) return sdf_error("sdf_write_char", 3005, full);
    const size_t n = text ? strlen(text) : 0;
    if (n > static_cast<size_t>(INT32_MAX / 2)) return sdf_error("sdf_write_char", 4001, "String too long for a slot.");
    // The string's slot and the description are made before the variable
    // changes, as in write_var.
    sdf_texts texts;
    int rc = stage_texts(f, full, nullptr, desc, 0, &texts, "sdf_write_char");
    if (rc) return rc;
    sdf_slotref fresh{0, 0};
    if (n > 0) {
        char* slot = static_cast<char*>(sdf_get_slot(f, SDF_CH_CHRVAR, static_cast<int>(n), &fresh, &rc));
        if (!slot) {
            sdf_texts_drop(f, &texts);
            return sdf_error_chain("sdf_write_char", rc, "sdf_get_slot");
        }
        memcpy(slot, text, n + 1);
    }
    ventry* row = sdf_value_row(f, R, name, &rc);
    if (!row) {
        sdf_free_slot(f, SDF_CH_CHRVAR, &fresh);
        sdf_texts_drop(f, &texts);
        return rc;
    }
    const int warned = rc;
    sdf_varrec* r = row->record;
    r->type = SDF_CHAR_T;
    r->value.i[2] = fresh.block;
    r->value.i[3] = fresh.index;
    r->elen = static_cast<int32_t>(n);
    sdf_touch(f->file, r, row->block, 1);
    if ((rc = sdf_texts_install(f, row, &texts))) return sdf_error_chain("sdf_write_char", rc, "sdf_texts_install");
    if ((rc = sdf_commit_if_always(f, "sdf_write_char"))) return rc;
    return warned;
}

int get_cval(fcb* f, const char* name, char** text, int* length) {
    static const char* R = "sdf_get_cval";
    int rc = 0;
    ventry* row = sdf_lookup(f, R, name, SDF_WANT_CHAR, &rc);
    if (!row) return rc;
    const bool lock = !f->file->internal;
    if (lock) ZU_lock(f->file->slot_mutex);
    sdf_slotref ref = cval_ref(row->record);
    const char* src = "";
    if (ref.block != 0) {
        src = static_cast<const char*>(sdf_get_slot(f, SDF_CH_CHRVAR, 0, &ref, &rc));
        if (!src) rc = sdf_error_chain(R, rc, "sdf_get_slot");
    }
    if (src) {
        const size_t n = strlen(src);
        char* copy = static_cast<char*>(sdf_register(ZU_allocMem(n + 1, "Sdf_Get_Cval:text")));
        if (copy) {
            memcpy(copy, src, n + 1);
            *text = copy;
            if (length) *length = static_cast<int>(n);
        } else {
            rc = sdf_error(R, 3025, row->name);
        }
    }
    if (lock) ZU_unlock(f->file->slot_mutex);
    return rc;
}

int where(fcb* f, const char* name, void** address) {
    static const char* R = "sdf_where";
    int rc = 0;
    ventry* row = sdf_lookup(f, R, name, SDF_WANT_ANY, &rc);
    if (!row) return rc;
    sdf_varrec* r = row->record;
    sdfile* s = f->file;
    void* p = nullptr;
    if (SDF_IS_ARRAY(r->type)) {
        const int first = r->value.i[2];
        if (first > 0 && first < s->blks->count) p = s->blks->rows[first].data;
    } else if (r->type == SDF_CHAR_T) {
        sdf_slotref ref = cval_ref(r);
        if (ref.block != 0 && !(p = sdf_get_slot(f, SDF_CH_CHRVAR, 0, &ref, &rc)))
            return sdf_error_chain(R, rc, "sdf_get_slot");
    } else {
        p = &r->value;
    }
    *address = p;
    if (!p && sdf_opt_int(f, SDF_OPT_WHERE_MEM_ERROR) == 1) return sdf_error(R, 3025, row->name);
    return 0;
}

int where_on(int channel, const char* name, void** address, const char* R) {
    if (!address) return null_arg(R);
    *address = nullptr;
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_read_begin(channel, R, &f, &taken)) return rc;
    // Only memory files have values that stay put at an address.
    const int rc = f->file->internal ? where(f, name, address) : sdf_error(R, 3004, channel);
    sdf_chan_read_end(f, taken);
    return rc == 0 || rc == 3004 ? rc : sdf_error_chain(R, rc, "sdf_where");
}

}  // namespace

extern "C" {

int Sdf_Get_Type(int channel, const char* name, int* type, int* is_array) {
    static const char* R = "Sdf_Get_Type";
    if (!type || !is_array) return null_arg(R);
    return run_read(channel, R, "sdf_get_type", [&](fcb* f) {
        int rc = 0;
        ventry* row = sdf_lookup(f, "sdf_get_type", name, SDF_WANT_ANY, &rc);
        if (!row) return rc;
        *type = SDF_BASE_TYPE(row->record->type);
        *is_array = SDF_IS_ARRAY(row->record->type) ? 1 : 0;
        return 0;
    });
}

int Sdf_Get_Elen(int channel, const char* name, int* elen) {
    static const char* R = "Sdf_Get_Elen";
    if (!elen) return null_arg(R);
    return run_read(channel, R, "sdf_get_elen", [&](fcb* f) {
        int rc = 0;
        ventry* row = sdf_lookup(f, "sdf_get_elen", name, SDF_WANT_ANY, &rc);
        if (row) *elen = row->record->elen;
        return rc;
    });
}

int Sdf_Get_Dims64(int channel, const char* name, int64_t dims[8]) {
    static const char* R = "Sdf_Get_Dims64";
    if (!dims) return null_arg(R);
    return run_read(channel, R, "sdf_get_dims", [&](fcb* f) {
        int rc = 0;
        ventry* row = sdf_lookup(f, "sdf_get_dims", name, SDF_WANT_ARRAY, &rc);
        return row ? read_dims(f, row, dims, "sdf_get_dims") : rc;
    });
}

int Sdf_Last_Dim64(int channel, const char* name, int64_t* extent) {
    static const char* R = "Sdf_Last_Dim64";
    if (!extent) return null_arg(R);
    int64_t dims[8];
    int rc = Sdf_Get_Dims64(channel, name, dims);
    if (rc) return rc < 3001 || rc > 3002 ? sdf_error_chain(R, rc, "Sdf_Get_Dims64") : rc;
    *extent = dims[0] > 0 ? dims[dims[0]] : 0;
    return 0;
}

int Sdf_Get_Dims(int channel, const char* name, int32_t dims[8]) {
    static const char* R = "Sdf_Get_Dims";
    if (!dims) return null_arg(R);
    int64_t wide[8];
    int rc = Sdf_Get_Dims64(channel, name, wide);
    if (rc) return rc < 3001 || rc > 3002 ? sdf_error_chain(R, rc, "Sdf_Get_Dims64") : rc;
    dims[0] = 0;
    for (int64_t i = 1; i <= wide[0]; i++) {
        if (wide[i] > INT32_MAX) return sdf_error(R, 3024, " ", name ? name : "");
        dims[i] = static_cast<int32_t>(wide[i]);
    }
    dims[0] = static_cast<int32_t>(wide[0]);
    return 0;
}

int Sdf_Last_Dim(int channel, const char* name, int32_t* extent) {
    static const char* R = "Sdf_Last_Dim";
    if (!extent) return null_arg(R);
    int64_t wide = 0;
    int rc = Sdf_Last_Dim64(channel, name, &wide);
    if (rc) return rc < 3001 || rc > 3002 ? sdf_error_chain(R, rc, "Sdf_Last_Dim64") : rc;
    if (wide > INT32_MAX) return sdf_error(R, 3024, " ", name ? name : "");
    *extent = static_cast<int32_t>(wide);
    return 0;
}

int Sdf_Put_Dims64(int channel, const char* name, const int64_t* dims) {
    static const char* R = "Sdf_Put_Dims64";
    if (!dims) return null_arg(R);
    int64_t local[8] = {};
    // Only the rank and as many extents as a valid rank has are read.
    local[0] = dims[0];
    for (int64_t i = 1; i <= dims[0] && i <= SDF_MAX_RANK; i++) local[i] = dims[i];
    return run_write(channel, R, "sdf_put_dims", [&](fcb* f) { return put_dims(f, name, local); });
}

int Sdf_Put_Dims(int channel, const char* name, const int32_t* dims) {
    static const char* R = "Sdf_Put_Dims";
    if (!dims) return null_arg(R);
    int64_t wide[8] = {};
    wide[0] = dims[0];
    for (int i = 1; i <= dims[0] && i <= SDF_MAX_RANK; i++) wide[i] = dims[i];
    return run_write(channel, R, "sdf_put_dims", [&](fcb* f) { return put_dims(f, name, wide); });
}

int Sdf_Get_Val(int channel, const char* name, void* value) {
    static const char* R = "Sdf_Get_Val";
    if (!value) return null_arg(R);
    return run_read(channel, R, "sdf_get_val", [&](fcb* f) {
        int rc = 0;
        ventry* row = sdf_lookup(f, "sdf_get_val", name, SDF_WANT_NUMBER, &rc);
        if (row) memcpy(value, &row->record->value, static_cast<size_t>(sdf_type_elen(row->record->type)));
        return rc;
    });
}

int Sdf_Put_Val(int channel, const char* name, const void* value) {
    static const char* R = "Sdf_Put_Val";
    if (!value) return null_arg(R);
    return run_write(channel, R, "sdf_put_val", [&](fcb* f) {
        int rc = 0;
        ventry* row = sdf_lookup(f, "sdf_put_val", name, SDF_WANT_NUMBER, &rc);
        if (!row) return rc;
        sdf_varrec* r = row->record;
        memset(&r->value, 0, sizeof r->value);
        memcpy(&r->value, value, static_cast<size_t>(sdf_type_elen(r->type)));
        sdf_touch(f->file, r, row->block, 1);
        return sdf_commit_if_always(f, "sdf_put_val");
    });
}

int Sdf_Get_Cval(int channel, const char* name, char** text, int* length) {
    static const char* R = "Sdf_Get_Cval";
    if (!text) return null_arg(R);
    *text = nullptr;
    if (length) *length = 0;
    return run_read(channel, R, "sdf_get_cval", [&](fcb* f) { return get_cval(f, name, text, length); });
}

int Sdf_Put_Cval(int channel, const char* name, const char* text) {
    static const char* R = "Sdf_Put_Cval";
    return run_write(channel, R, "sdf_put_cval", [&](fcb* f) {
        int rc = 0;
        ventry* row = sdf_lookup(f, "sdf_put_cval", name, SDF_WANT_CHAR, &rc);
        if (!row) return rc;
        if ((rc = store_cval(f, row, text, "sdf_put_cval"))) return rc;
        return sdf_commit_if_always(f, "sdf_put_cval");
    });
}

int Sdf_Write_Var(int channel, const char* name, int type, const void* value, const char* units,
                  const char* desc) {
    static const char* R = "Sdf_Write_Var";
    if (!value) return null_arg(R);
    return run_write(channel, R, "sdf_write_var",
                     [&](fcb* f) { return write_var(f, name, type, value, units, desc); });
}

int Sdf_Write_Char(int channel, const char* name, const char* text, const char* desc) {
    static const char* R = "Sdf_Write_Char";
    return run_write(channel, R, "sdf_write_char", [&](fcb* f) { return write_char(f, name, text, desc); });
}

int Sdf_Where_Chan(int channel, const char* name, void** address) {
    return where_on(channel, name, address, "Sdf_Where_Chan");
}

int Sdf_Where(const char* name, void** address) {
    return where_on(sdf_opt_int(nullptr, SDF_OPT_DEFAULT_INTERNAL_CHANNEL), name, address, "Sdf_Where");
}

}  // extern "C"
