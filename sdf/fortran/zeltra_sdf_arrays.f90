! The array forms of the zeltra_sdf module (see zeltra_sdf.f90 for the
! conventions): defining, reading and writing arrays of any rank, of rank 1
! to 3 with separate extents and indices, and slices, each in a form with
! default integers and a form ending in 64 with 64-bit extents and indices.
! Programs reach them through `use zeltra_sdf`.
module zeltra_sdf_arrays
    use iso_c_binding, only: c_int, c_int32_t, c_int64_t, c_ptr
    implicit none
    private :: c_int, c_int32_t, c_int64_t, c_ptr

    interface
        ! Arrays of any rank: dimensions as an array, start counting from 1.
        subroutine sdf_define_array_ref(ch, name, type, clen, dims, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int32_t), intent(in) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_array_ref
        subroutine sdf_read_array_ref(ch, name, data, start, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int32_t), intent(inout) :: start(*)
            integer(c_int32_t), intent(in) :: count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_array_ref
        subroutine sdf_write_array_ref(ch, name, data, start, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int32_t), intent(inout) :: start(*)
            integer(c_int32_t), intent(in) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_array_ref
        subroutine sdf_read_carray_ref(ch, name, fields, start, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int32_t), intent(inout) :: start(*)
            integer(c_int32_t), intent(in) :: count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carray_ref
        subroutine sdf_write_carray_ref(ch, name, fields, start, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int32_t), intent(inout) :: start(*)
            integer(c_int32_t), intent(in) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carray_ref
        subroutine sdf_read_alloc_ref(ch, name, data, clen, start, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int32_t), intent(inout) :: start(*)
            integer(c_int32_t), intent(in) :: count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_alloc_ref
        subroutine sdf_define_array64_ref(ch, name, type, clen, dims, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int64_t), intent(in) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_array64_ref
        subroutine sdf_read_array64_ref(ch, name, data, start, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int64_t), intent(inout) :: start(*)
            integer(c_int64_t), intent(in) :: count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_array64_ref
        subroutine sdf_write_array64_ref(ch, name, data, start, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int64_t), intent(inout) :: start(*)
            integer(c_int64_t), intent(in) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_array64_ref
        subroutine sdf_read_carray64_ref(ch, name, fields, start, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int64_t), intent(inout) :: start(*)
            integer(c_int64_t), intent(in) :: count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carray64_ref
        subroutine sdf_write_carray64_ref(ch, name, fields, start, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int64_t), intent(inout) :: start(*)
            integer(c_int64_t), intent(in) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carray64_ref
        subroutine sdf_read_alloc64_ref(ch, name, data, clen, start, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int64_t), intent(inout) :: start(*)
            integer(c_int64_t), intent(in) :: count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_alloc64_ref

        ! Arrays of rank 1 to 3: extents and indices given one by one, from 1.
        subroutine sdf_define_arr1d_ref(ch, name, type, clen, d1, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int32_t), intent(in) :: d1
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_arr1d_ref
        subroutine sdf_read_arr1d_ref(ch, name, data, i, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int32_t), intent(in) :: i, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_arr1d_ref
        subroutine sdf_write_arr1d_ref(ch, name, data, i, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int32_t), intent(in) :: i, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_arr1d_ref
        subroutine sdf_read_carr1d_ref(ch, name, fields, i, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int32_t), intent(in) :: i, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carr1d_ref
        subroutine sdf_write_carr1d_ref(ch, name, fields, i, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int32_t), intent(in) :: i, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carr1d_ref
        subroutine sdf_read_all1d_ref(ch, name, data, clen, i, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int32_t), intent(in) :: i, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_all1d_ref
        subroutine sdf_define_arr2d_ref(ch, name, type, clen, d1, d2, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int32_t), intent(in) :: d1, d2
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_arr2d_ref
        subroutine sdf_read_arr2d_ref(ch, name, data, i, j, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int32_t), intent(in) :: i, j, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_arr2d_ref
        subroutine sdf_write_arr2d_ref(ch, name, data, i, j, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int32_t), intent(in) :: i, j, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_arr2d_ref
        subroutine sdf_read_carr2d_ref(ch, name, fields, i, j, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int32_t), intent(in) :: i, j, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carr2d_ref
        subroutine sdf_write_carr2d_ref(ch, name, fields, i, j, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int32_t), intent(in) :: i, j, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carr2d_ref
        subroutine sdf_read_all2d_ref(ch, name, data, clen, i, j, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int32_t), intent(in) :: i, j, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_all2d_ref
        subroutine sdf_define_arr3d_ref(ch, name, type, clen, d1, d2, d3, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int32_t), intent(in) :: d1, d2, d3
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_arr3d_ref
        subroutine sdf_read_arr3d_ref(ch, name, data, i, j, k, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int32_t), intent(in) :: i, j, k, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_arr3d_ref
        subroutine sdf_write_arr3d_ref(ch, name, data, i, j, k, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int32_t), intent(in) :: i, j, k, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_arr3d_ref
        subroutine sdf_read_carr3d_ref(ch, name, fields, i, j, k, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int32_t), intent(in) :: i, j, k, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carr3d_ref
        subroutine sdf_write_carr3d_ref(ch, name, fields, i, j, k, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int32_t), intent(in) :: i, j, k, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carr3d_ref
        subroutine sdf_read_all3d_ref(ch, name, data, clen, i, j, k, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int32_t), intent(in) :: i, j, k, count
            integer(c_int32_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_all3d_ref
        subroutine sdf_define_arr1d64_ref(ch, name, type, clen, d1, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int64_t), intent(in) :: d1
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_arr1d64_ref
        subroutine sdf_read_arr1d64_ref(ch, name, data, i, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int64_t), intent(in) :: i, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_arr1d64_ref
        subroutine sdf_write_arr1d64_ref(ch, name, data, i, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int64_t), intent(in) :: i, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_arr1d64_ref
        subroutine sdf_read_carr1d64_ref(ch, name, fields, i, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int64_t), intent(in) :: i, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carr1d64_ref
        subroutine sdf_write_carr1d64_ref(ch, name, fields, i, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int64_t), intent(in) :: i, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carr1d64_ref
        subroutine sdf_read_all1d64_ref(ch, name, data, clen, i, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int64_t), intent(in) :: i, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_all1d64_ref
        subroutine sdf_define_arr2d64_ref(ch, name, type, clen, d1, d2, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int64_t), intent(in) :: d1, d2
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_arr2d64_ref
        subroutine sdf_read_arr2d64_ref(ch, name, data, i, j, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int64_t), intent(in) :: i, j, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_arr2d64_ref
        subroutine sdf_write_arr2d64_ref(ch, name, data, i, j, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int64_t), intent(in) :: i, j, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_arr2d64_ref
        subroutine sdf_read_carr2d64_ref(ch, name, fields, i, j, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int64_t), intent(in) :: i, j, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carr2d64_ref
        subroutine sdf_write_carr2d64_ref(ch, name, fields, i, j, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int64_t), intent(in) :: i, j, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carr2d64_ref
        subroutine sdf_read_all2d64_ref(ch, name, data, clen, i, j, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int64_t), intent(in) :: i, j, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_all2d64_ref
        subroutine sdf_define_arr3d64_ref(ch, name, type, clen, d1, d2, d3, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type, clen
            character(len=*), intent(in) :: name, units, desc
            integer(c_int64_t), intent(in) :: d1, d2, d3
            integer(c_int), intent(out) :: rc
        end subroutine sdf_define_arr3d64_ref
        subroutine sdf_read_arr3d64_ref(ch, name, data, i, j, k, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int64_t), intent(in) :: i, j, k, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_arr3d64_ref
        subroutine sdf_write_arr3d64_ref(ch, name, data, i, j, k, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int64_t), intent(in) :: i, j, k, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_arr3d64_ref
        subroutine sdf_read_carr3d64_ref(ch, name, fields, i, j, k, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int64_t), intent(in) :: i, j, k, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_carr3d64_ref
        subroutine sdf_write_carr3d64_ref(ch, name, fields, i, j, k, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int64_t), intent(in) :: i, j, k, count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_carr3d64_ref
        subroutine sdf_read_all3d64_ref(ch, name, data, clen, i, j, k, count, nread, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int64_t), intent(in) :: i, j, k, count
            integer(c_int64_t), intent(out) :: nread
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_all3d64_ref

        ! Slices: begin, end and step per dimension.
        subroutine sdf_read_slice_ref(ch, name, data, begin, end, step, tr_vec, count, dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int32_t), intent(in) :: begin(*), end(*), step(*), tr_vec(*)
            integer(c_int32_t), intent(out) :: count
            integer(c_int32_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_slice_ref
        subroutine sdf_write_slice_ref(ch, name, data, begin, end, step, tr_vec, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int32_t), intent(in) :: begin(*), end(*), step(*), tr_vec(*)
            integer(c_int32_t), intent(out) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_slice_ref
        subroutine sdf_read_cslice_ref(ch, name, fields, begin, end, step, tr_vec, count, &
                                       dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int32_t), intent(in) :: begin(*), end(*), step(*), tr_vec(*)
            integer(c_int32_t), intent(out) :: count
            integer(c_int32_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_cslice_ref
        subroutine sdf_write_cslice_ref(ch, name, fields, begin, end, step, tr_vec, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int32_t), intent(in) :: begin(*), end(*), step(*), tr_vec(*)
            integer(c_int32_t), intent(out) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_cslice_ref
        subroutine sdf_read_aslice_ref(ch, name, data, clen, begin, end, step, tr_vec, &
                                       count, dims, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int32_t), intent(in) :: begin(*), end(*), step(*), tr_vec(*)
            integer(c_int32_t), intent(out) :: count
            integer(c_int32_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_aslice_ref
        subroutine sdf_read_slice64_ref(ch, name, data, begin, end, step, tr_vec, count, &
                                        dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: data(*)
            integer(c_int64_t), intent(in) :: begin(*), end(*), step(*)
            integer(c_int32_t), intent(in) :: tr_vec(*)
            integer(c_int64_t), intent(out) :: count
            integer(c_int64_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_slice64_ref
        subroutine sdf_write_slice64_ref(ch, name, data, begin, end, step, tr_vec, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: data(*)
            integer(c_int64_t), intent(in) :: begin(*), end(*), step(*)
            integer(c_int32_t), intent(in) :: tr_vec(*)
            integer(c_int64_t), intent(out) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_slice64_ref
        subroutine sdf_read_cslice64_ref(ch, name, fields, begin, end, step, tr_vec, count, &
                                         dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(inout) :: fields(*)
            integer(c_int64_t), intent(in) :: begin(*), end(*), step(*)
            integer(c_int32_t), intent(in) :: tr_vec(*)
            integer(c_int64_t), intent(out) :: count
            integer(c_int64_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_cslice64_ref
        subroutine sdf_write_cslice64_ref(ch, name, fields, begin, end, step, tr_vec, count, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, fields(*)
            integer(c_int64_t), intent(in) :: begin(*), end(*), step(*)
            integer(c_int32_t), intent(in) :: tr_vec(*)
            integer(c_int64_t), intent(out) :: count
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_cslice64_ref
        subroutine sdf_read_aslice64_ref(ch, name, data, clen, begin, end, step, tr_vec, &
                                         count, dims, rc)
            import
            integer(c_int), intent(in) :: ch, clen
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: data
            integer(c_int64_t), intent(in) :: begin(*), end(*), step(*)
            integer(c_int32_t), intent(in) :: tr_vec(*)
            integer(c_int64_t), intent(out) :: count
            integer(c_int64_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_read_aslice64_ref
    end interface
end module zeltra_sdf_arrays
