// Public forms of the array and slice operations on elements of any type.
//
// Each form is one line over a template of sdf_array_forms.h, so the 32-bit
// and 64-bit forms can't drift apart: the 32-bit ones widen their index
// arrays on the way in and test counts and extents on the way out. A form
// names itself in reports ("64" included) and the core routine it ran.
#include "sdf_array_forms.h"

namespace {

using sdfforms::Call;

template <class I>
int define(const char* R, int channel, const char* name, int type, int clen, const I* dims, const char* units,
           const char* desc) {
    Call c(channel, R, true);
    if (c.rc) return c.rc;
    int64_t d[8];
    sdfforms::widen(dims, d);
    int rc = sdf_define_array(c.f, name, type, clen, d, units, desc);
    // The overwrite warnings are the define's own result, as for scalars.
    return rc == 2010 || rc == 2011 ? rc : sdf_error_chain(R, rc, "sdf_define_array");
}

template <class I>
int read_array(const char* R, int channel, const char* name, void** data, I* start, I count, I* nread) {
    if (!data) return sdf_error(R, 4001, "No data pointer given.");
    return sdfforms::read_run(R, "sdf_array_read", channel, name, false, start, count, nread,
                              [data](fcb* f, ventry* row, int64_t* st, int64_t n, int64_t* got) {
                                  return sdf_array_read(f, row, st, n, data, got);
                              });
}

template <class I>
int write_array(const char* R, int channel, const char* name, const void* data, I* start, I count) {
    if (!data && count > 0) return sdf_error(R, 4001, "No data given.");
    return sdfforms::write_run(R, "sdf_array_write", channel, name, false, start, count,
                               [data](fcb* f, ventry* row, int64_t* st, int64_t n) {
                                   return sdf_array_write(f, row, st, n, data);
                               });
}

template <class I>
int read_slice(const char* R, int channel, const char* name, void** data, const I* begin, const I* end,
               const I* step, const int32_t* tr_vec, I* count, I* dims) {
    if (!data) return sdf_error(R, 4001, "No data pointer given.");
    int64_t d[8];
    return sdfforms::read_slice(R, "sdf_slice_read", channel, name, false, begin, end, step, tr_vec, count, dims,
                                [data, &d](fcb* f, ventry* row, const sdf_slice* sl) {
                                    return sdf_slice_read(f, row, sl, data, d);
                                });
}

template <class I>
int write_slice(const char* R, int channel, const char* name, const void* data, const I* begin, const I* end,
                const I* step, const int32_t* tr_vec, I* count) {
    if (!data) return sdf_error(R, 4001, "No data given.");
    return sdfforms::write_slice(R, "sdf_slice_write", channel, name, false, begin, end, step, tr_vec, count,
                                 [data](fcb* f, ventry* row, const sdf_slice* sl) {
                                     return sdf_slice_write(f, row, sl, data);
                                 });
}

}  // namespace

extern "C" int sdf_adopt_array(int channel, const char* name, int type, const int64_t* dims, const char* units,
                               void** block, size_t size) {
    static const char* R = "Sdf_Define_Array64";
    Call c(channel, R, true);
    if (c.rc) return c.rc;
    int rc = sdf_define_array_adopt(c.f, name, type, dims, units, block, size);
    return rc == 2010 || rc == 2011 ? rc : sdf_error_chain(R, rc, "sdf_define_array");
}

extern "C" {

int Sdf_Define_Array(int ch, const char* name, int type, int clen, const int32_t* dims, const char* units,
                     const char* desc) {
    return define("Sdf_Define_Array", ch, name, type, clen, dims, units, desc);
}
int Sdf_Define_Array64(int ch, const char* name, int type, int clen, const int64_t* dims, const char* units,
                       const char* desc) {
    return define("Sdf_Define_Array64", ch, name, type, clen, dims, units, desc);
}

int Sdf_Read_Array(int ch, const char* name, void** data, int32_t* start, int32_t count, int32_t* nread) {
    return read_array("Sdf_Read_Array", ch, name, data, start, count, nread);
}
int Sdf_Read_Array64(int ch, const char* name, void** data, int64_t* start, int64_t count, int64_t* nread) {
    return read_array("Sdf_Read_Array64", ch, name, data, start, count, nread);
}

int Sdf_Write_Array(int ch, const char* name, const void* data, int32_t* start, int32_t count) {
    return write_array("Sdf_Write_Array", ch, name, data, start, count);
}
int Sdf_Write_Array64(int ch, const char* name, const void* data, int64_t* start, int64_t count) {
    return write_array("Sdf_Write_Array64", ch, name, data, start, count);
}

int Sdf_Read_Slice(int ch, const char* name, void** data, const int32_t* begin, const int32_t* end,
                   const int32_t* step, const int32_t* tr_vec, int32_t* count, int32_t dims[8]) {
    return read_slice("Sdf_Read_Slice", ch, name, data, begin, end, step, tr_vec, count, dims);
}
int Sdf_Read_Slice64(int ch, const char* name, void** data, const int64_t* begin, const int64_t* end,
                     const int64_t* step, const int32_t* tr_vec, int64_t* count, int64_t dims[8]) {
    return read_slice("Sdf_Read_Slice64", ch, name, data, begin, end, step, tr_vec, count, dims);
}

int Sdf_Write_Slice(int ch, const char* name, const void* data, const int32_t* begin, const int32_t* end,
                    const int32_t* step, const int32_t* tr_vec, int32_t* count) {
    return write_slice("Sdf_Write_Slice", ch, name, data, begin, end, step, tr_vec, count);
}
int Sdf_Write_Slice64(int ch, const char* name, const void* data, const int64_t* begin, const int64_t* end,
                      const int64_t* step, const int32_t* tr_vec, int64_t* count) {
    return write_slice("Sdf_Write_Slice64", ch, name, data, begin, end, step, tr_vec, count);
}

}  // extern "C"
