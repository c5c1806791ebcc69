// Units and description of a variable: their store in chrvar slots and the
// public operations that read and set them.
//
// A record names its units and description by slot reference; block 0 means
// none. Storing the text a slot already holds changes nothing, not even the
// record's time, so that rewriting a file with the same metadata doesn't
// look like a change. Texts handed to the caller are copies entered in the
// memory register, made while the slot mutex holds the chrvar buffers still.
#include <string.h>

#include "sdf_inner.h"

namespace {

enum Field { kUnits, kDesc };

sdf_slotref& field_ref(sdf_varrec* r, Field which) { return which == kUnits ? r->units : r->desc; }

const char* field_routine(Field which) { return which == kUnits ? "sdf_units_put" : "sdf_desc_put"; }

int put_text(fcb* f, ventry* row, const char* text, Field which) {
    const char* R = field_routine(which);
    sdf_varrec* r = row->record;
    sdf_slotref& ref = field_ref(r, which);
    const size_t n = text ? strlen(text) : 0;
    if (n > 0 && ref.block != 0) {
        int err = 0;
        const char* old = static_cast<const char*>(sdf_get_slot(f, SDF_CH_CHRVAR, 0, &ref, &err));
        if (!old) return sdf_error_chain(R, err, "sdf_get_slot");
        if (strcmp(old, text) == 0) return 0;
    }
    if (n == 0 && ref.block == 0) return 0;
    if (n > static_cast<size_t>(INT32_MAX / 2)) return sdf_error(R, 4001, "Text too long for a slot.");
    if (int rc = sdf_free_slot(f, SDF_CH_CHRVAR, &ref)) return sdf_error_chain(R, rc, "sdf_free_slot");
    sdf_touch(f->file, r, row->block, 1);
    if (n == 0) return 0;
    int err = 0;
    char* slot = static_cast<char*>(sdf_get_slot(f, SDF_CH_CHRVAR, static_cast<int>(n), &ref, &err));
    if (!slot) return sdf_error_chain(R, err, "sdf_get_slot");
    memcpy(slot, text, n + 1);
    return 0;
}

// Stages one field: keep (set 0) when the text is the slot's or both are
// empty, else a new slot for a non-empty text (set 1, or none for an empty
// one, which frees the old at install).
int stage_text(fcb* f, const ventry* old, const char* text, Field which, sdf_slotref* slot, int32_t* set) {
    const char* R = field_routine(which);
    *slot = sdf_slotref{0, 0};
    *set = 0;
    sdf_slotref ref = old ? field_ref(old->record, which) : sdf_slotref{0, 0};
    const size_t n = text ? strlen(text) : 0;
    if (n > 0 && ref.block != 0) {
        int err = 0;
        const char* now = static_cast<const char*>(sdf_get_slot(f, SDF_CH_CHRVAR, 0, &ref, &err));
        if (!now) return sdf_error_chain(R, err, "sdf_get_slot");
        if (strcmp(now, text) == 0) return 0;
    }
    if (n == 0 && ref.block == 0) return 0;
    if (n > static_cast<size_t>(INT32_MAX / 2)) return sdf_error(R, 4001, "Text too long for a slot.");
    if (n > 0) {
        int err = 0;
        char* p = static_cast<char*>(sdf_get_slot(f, SDF_CH_CHRVAR, static_cast<int>(n), slot, &err));
        if (!p) return sdf_error_chain(R, err, "sdf_get_slot");
        memcpy(p, text, n + 1);
    }
    *set = 1;
    return 0;
}

// Public read of units or description.
int get_text(int channel, const char* name, char** text, Field which, const char* R, const char* core) {
    if (!text) return sdf_error(R, 4001, "No place for the result.");
    *text = nullptr;
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_read_begin(channel, R, &f, &taken)) return rc;
    int rc = 0;
    char* copy = nullptr;
    if (ventry* row = sdf_lookup(f, core, name, SDF_WANT_ANY, &rc)) {
        const bool lock = !f->file->internal;
        if (lock) ZU_lock(f->file->slot_mutex);
        const char* src = "";
        sdf_slotref ref = field_ref(row->record, which);
        if (ref.block != 0) {
            src = static_cast<const char*>(sdf_get_slot(f, SDF_CH_CHRVAR, 0, &ref, &rc));
            if (!src) rc = sdf_error_chain(core, rc, "sdf_get_slot");
        }
        if (src) {
            const size_t n = strlen(src);
            const char* tag = which == kUnits ? "Sdf_Get_Units:text" : "Sdf_Get_Desc:text";
            copy = static_cast<char*>(sdf_register(ZU_allocMem(n + 1, tag)));
            if (copy)
                memcpy(copy, src, n + 1);
            else
                rc = sdf_error(core, 3025, name ? name : "");
        }
        if (lock) ZU_unlock(f->file->slot_mutex);
    }
    sdf_chan_read_end(f, taken);
    *text = copy;
    return rc ? sdf_error_chain(R, rc, core) : 0;
}

int put_public(int channel, const char* name, const char* text, Field which, const char* R, const char* core) {
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_write_begin(channel, R, &f, &taken)) return rc;
    int rc = 0;
    const char* callee = core;
    if (ventry* row = sdf_lookup(f, core, name, SDF_WANT_ANY, &rc)) {
        rc = put_text(f, row, text, which);
        if (rc)
            callee = field_routine(which);
        else
            rc = sdf_commit_if_always(f, core);
    }
    sdf_chan_write_end(f, taken);
    return rc ? sdf_error_chain(R, rc, callee) : 0;
}

}  // namespace

extern "C" {

int sdf_units_put(fcb* f, ventry* row, const char* text) { return put_text(f, row, text, kUnits); }

int sdf_desc_put(fcb* f, ventry* row, const char* text) { return put_text(f, row, text, kDesc); }

int sdf_texts_stage(fcb* f, const ventry* old, const char* units, const char* desc, int with_units, sdf_texts* t) {
    *t = sdf_texts{};
    int rc = with_units ? stage_text(f, old, units, kUnits, &t->slot[kUnits], &t->set[kUnits]) : 0;
    if (!rc) rc = stage_text(f, old, desc, kDesc, &t->slot[kDesc], &t->set[kDesc]);
    if (rc) sdf_texts_drop(f, t);
    return rc;
}

int sdf_texts_install(fcb* f, ventry* row, sdf_texts* t) {
    int rc = 0;
    for (int k = 0; k < 2; k++) {
        const Field which = k == 0 ? kUnits : kDesc;
        if (!t->set[which]) continue;
        sdf_slotref& ref = field_ref(row->record, which);
        sdf_slotref replaced = ref;
        ref = t->slot[which];
        t->slot[which] = sdf_slotref{0, 0};
        t->set[which] = 0;
        sdf_touch(f->file, row->record, row->block, 1);
        int r2 = sdf_free_slot(f, SDF_CH_CHRVAR, &replaced);
        if (r2 && !rc) rc = sdf_error_chain(field_routine(which), r2, "sdf_free_slot");
    }
    return rc;
}

void sdf_texts_drop(fcb* f, sdf_texts* t) {
    for (int k = 0; k < 2; k++) {
        sdf_free_slot(f, SDF_CH_CHRVAR, &t->slot[k]);  // a slot just made: nothing to fail on
        t->set[k] = 0;
    }
}

int Sdf_Get_Units(int channel, const char* name, char** text) {
    return get_text(channel, name, text, kUnits, "Sdf_Get_Units", "sdf_get_units");
}

int Sdf_Get_Desc(int channel, const char* name, char** text) {
    return get_text(channel, name, text, kDesc, "Sdf_Get_Desc", "sdf_get_desc");
}

int Sdf_Put_Units(int channel, const char* name, const char* text) {
    return put_public(channel, name, text, kUnits, "Sdf_Put_Units", "sdf_put_units");
}

int Sdf_Put_Desc(int channel, const char* name, const char* text) {
    return put_public(channel, name, text, kDesc, "Sdf_Put_Desc", "sdf_put_desc");
}

}  // extern "C"
