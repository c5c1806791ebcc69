! The zeltra_sdf module: what a Fortran program needs to call the SDF
! library with its arguments checked by the compiler. It holds the element
! type codes as named constants and an explicit interface for each
! by-reference form (suffix _ref) of sdf.h.
!
! The interfaces describe external procedures without BIND(C), so gfortran
! calls them exactly as it would without the module: the lower-case name with
! a trailing underscore that the library exports, every argument by address,
! each character argument's length as a hidden size_t after the last argument.
! The module therefore adds checking and changes no call; it holds no code.
!
! Conventions the interfaces keep (see the README section on Fortran):
!  - the result of each form also comes back in its last argument, rc;
!  - integers are default-kind c_int, or c_int64_t in the forms ending in 64;
!  - data buffers are type(*): any numeric or logical array (or array
!    element) of the variable's type; character arrays go through the
!    *carr*/*carray*/*cslice* forms, whose field length is the width;
!  - arrays the library fills (fields, names, dimensions) are intent(inout):
!    it writes as many elements as it has and leaves the rest as they were;
!  - the forms that allocate hand back a type(c_ptr), released with
!    sdf_free_ref.
! The array forms stand in zeltra_sdf_arrays (zeltra_sdf_arrays.f90), which
! this module passes on, and so are the utility library's table and response
! surface forms (zeltra_maps, zeltra_maps.f90): a program only says
! `use zeltra_sdf`.
! Sdf_Set_Dims_ref and Sdf_Set_Dims64_ref take a variable number of extents
! and so have no interface here; they are called as plain external
! procedures.
module zeltra_sdf
    use zeltra_sdf_arrays
    use zeltra_maps
    use iso_c_binding, only: c_int, c_int32_t, c_int64_t, c_ptr
    implicit none
    private :: c_int, c_int32_t, c_int64_t, c_ptr

    ! Element type codes; an array's code is the base code plus 100.
    integer(c_int), parameter :: SDF_CHAR_T = 1
    integer(c_int), parameter :: SDF_INT_T = 11
    integer(c_int), parameter :: SDF_INT64_T = 12
    integer(c_int), parameter :: SDF_LOG_T = 15
    integer(c_int), parameter :: SDF_REAL_T = 21
    integer(c_int), parameter :: SDF_DBLE_T = 22
    integer(c_int), parameter :: SDF_CMPX_T = 31
    integer(c_int), parameter :: SDF_DCMPX_T = 32

    interface
        ! Files and channels.
        subroutine sdf_open_ref(ch, path, type, status, intent, rc)
            import
            integer(c_int), intent(out) :: ch, rc
            character(len=*), intent(in) :: path, type, status, intent
        end subroutine sdf_open_ref
        subroutine sdf_close_ref(ch, status, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: status
            integer(c_int), intent(out) :: rc
        end subroutine sdf_close_ref
        subroutine sdf_refresh_ref(ch, rc)
            import
            integer(c_int), intent(in) :: ch
            integer(c_int), intent(out) :: rc
        end subroutine sdf_refresh_ref
        subroutine sdf_write_ref(ch, rc)
            import
            integer(c_int), intent(in) :: ch
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_ref
        subroutine sdf_flush_ref(ch, rc)
            import
            integer(c_int), intent(in) :: ch
            integer(c_int), intent(out) :: rc
        end subroutine sdf_flush_ref
        subroutine sdf_filename_ref(ch, path, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(out) :: path
            integer(c_int), intent(out) :: rc
        end subroutine sdf_filename_ref
        subroutine sdf_is_open_ref(path, ch, rc)
            import
            character(len=*), intent(in) :: path
            integer(c_int), intent(out) :: ch, rc
        end subroutine sdf_is_open_ref
        subroutine sdf_is_sdf_ref(path, rc)
            import
            character(len=*), intent(in) :: path
            integer(c_int), intent(out) :: rc
        end subroutine sdf_is_sdf_ref
        subroutine sdf_lockfile_info_ref(path, text, rc)
            import
            character(len=*), intent(in) :: path
            character(len=*), intent(out) :: text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_lockfile_info_ref
        subroutine sdf_delete_lockfile_ref(path, rc)
            import
            character(len=*), intent(in) :: path
            integer(c_int), intent(out) :: rc
        end subroutine sdf_delete_lockfile_ref

        ! Memory the library allocated.
        subroutine sdf_free_ref(ptr, rc)
            import
            type(c_ptr), intent(in) :: ptr
            integer(c_int), intent(out) :: rc
        end subroutine sdf_free_ref

        ! Options, option stacks, mutexes and the cache.
        subroutine sdf_set_opts_ref(text, rc)
            import
            character(len=*), intent(in) :: text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_set_opts_ref
        subroutine sdf_set_opts_chan_ref(ch, text, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_set_opts_chan_ref
        subroutine sdf_get_opt_ref(option, value, rc)
            import
            character(len=*), intent(in) :: option
            character(len=*), intent(out) :: value
            integer(c_int), intent(out) :: rc
        end subroutine sdf_get_opt_ref
        subroutine sdf_get_opt_chan_ref(ch, option, value, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: option
            character(len=*), intent(out) :: value
            integer(c_int), intent(out) :: rc
        end subroutine sdf_get_opt_chan_ref
        subroutine sdf_push_ref(mode, rc)
            import
            integer(c_int), intent(in) :: mode
            integer(c_int), intent(out) :: rc
        end subroutine sdf_push_ref
        subroutine sdf_push_chan_ref(ch, mode, rc)
            import
            integer(c_int), intent(in) :: ch, mode
            integer(c_int), intent(out) :: rc
        end subroutine sdf_push_chan_ref
        subroutine sdf_pop_ref(rc)
            import
            integer(c_int), intent(out) :: rc
        end subroutine sdf_pop_ref
        subroutine sdf_pop_chan_ref(ch, rc)
            import
            integer(c_int), intent(in) :: ch
            integer(c_int), intent(out) :: rc
        end subroutine sdf_pop_chan_ref
        subroutine sdf_opt_depth_ref(rc)
            import
            integer(c_int), intent(out) :: rc
        end subroutine sdf_opt_depth_ref
        subroutine sdf_opt_depth_chan_ref(ch, rc)
            import
            integer(c_int), intent(in) :: ch
            integer(c_int), intent(out) :: rc
        end subroutine sdf_opt_depth_chan_ref
        subroutine sdf_mutex_lock_ref(ch, mode, rc)
            import
            integer(c_int), intent(in) :: ch, mode
            integer(c_int), intent(out) :: rc
        end subroutine sdf_mutex_lock_ref
        subroutine sdf_mutex_unlock_ref(ch, rc)
            import
            integer(c_int), intent(in) :: ch
            integer(c_int), intent(out) :: rc
        end subroutine sdf_mutex_unlock_ref
        subroutine sdf_cache_ref(ch, buffers, buffer_bytes, max_transfer, rc)
            import
            integer(c_int), intent(in) :: ch, buffers, buffer_bytes, max_transfer
            integer(c_int), intent(out) :: rc
        end subroutine sdf_cache_ref

        ! Variables: type, dimensions, values, units and descriptions.
        subroutine sdf_get_type_ref(ch, name, type, is_array, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int), intent(out) :: type, is_array, rc
        end subroutine sdf_get_type_ref
        subroutine sdf_get_elen_ref(ch, name, elen, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int), intent(out) :: elen, rc
        end subroutine sdf_get_elen_ref
        subroutine sdf_get_dims_ref(ch, name, dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int32_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_get_dims_ref
        subroutine sdf_get_dims64_ref(ch, name, dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int64_t), intent(inout) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_get_dims64_ref
        subroutine sdf_last_dim_ref(ch, name, extent, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int32_t), intent(out) :: extent
            integer(c_int), intent(out) :: rc
        end subroutine sdf_last_dim_ref
        subroutine sdf_last_dim64_ref(ch, name, extent, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int64_t), intent(out) :: extent
            integer(c_int), intent(out) :: rc
        end subroutine sdf_last_dim64_ref
        subroutine sdf_put_dims_ref(ch, name, dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int32_t), intent(in) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_put_dims_ref
        subroutine sdf_put_dims64_ref(ch, name, dims, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            integer(c_int64_t), intent(in) :: dims(*)
            integer(c_int), intent(out) :: rc
        end subroutine sdf_put_dims64_ref
        subroutine sdf_get_val_ref(ch, name, value, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(inout) :: value
            integer(c_int), intent(out) :: rc
        end subroutine sdf_get_val_ref
        subroutine sdf_put_val_ref(ch, name, value, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(*), intent(in) :: value
            integer(c_int), intent(out) :: rc
        end subroutine sdf_put_val_ref
        subroutine sdf_get_cval_ref(ch, name, text, length, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(out) :: text
            integer(c_int), intent(out) :: length, rc
        end subroutine sdf_get_cval_ref
        subroutine sdf_put_cval_ref(ch, name, text, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_put_cval_ref
        subroutine sdf_write_var_ref(ch, name, type, value, units, desc, rc)
            import
            integer(c_int), intent(in) :: ch, type
            character(len=*), intent(in) :: name, units, desc
            type(*), intent(in) :: value
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_var_ref
        subroutine sdf_write_char_ref(ch, name, text, desc, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, text, desc
            integer(c_int), intent(out) :: rc
        end subroutine sdf_write_char_ref
        subroutine sdf_get_units_ref(ch, name, text, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(out) :: text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_get_units_ref
        subroutine sdf_get_desc_ref(ch, name, text, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            character(len=*), intent(out) :: text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_get_desc_ref
        subroutine sdf_put_units_ref(ch, name, text, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_put_units_ref
        subroutine sdf_put_desc_ref(ch, name, text, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name, text
            integer(c_int), intent(out) :: rc
        end subroutine sdf_put_desc_ref

        ! Names: where, exists, validity, deletion, element counts.
        subroutine sdf_where_ref(name, address, rc)
            import
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: address
            integer(c_int), intent(out) :: rc
        end subroutine sdf_where_ref
        subroutine sdf_where_chan_ref(ch, name, address, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name
            type(c_ptr), intent(out) :: address
            integer(c_int), intent(out) :: rc
        end subroutine sdf_where_chan_ref
        subroutine sdf_exists_ref(ch, name_or_template, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name_or_template
            integer(c_int), intent(out) :: rc
        end subroutine sdf_exists_ref
        subroutine sdf_valid_name_ref(name, rc)
            import
            character(len=*), intent(in) :: name
            integer(c_int), intent(out) :: rc
        end subroutine sdf_valid_name_ref
        subroutine sdf_check_name_ref(name, position, rc)
            import
            character(len=*), intent(in) :: name
            integer(c_int), intent(out) :: position, rc
        end subroutine sdf_check_name_ref
        subroutine sdf_delete_ref(ch, name_or_template, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: name_or_template
            integer(c_int), intent(out) :: rc
        end subroutine sdf_delete_ref
        subroutine sdf_num_elem_ref(dims, rc)
            import
            integer(c_int32_t), intent(in) :: dims(*)
            integer(c_int32_t), intent(out) :: rc
        end subroutine sdf_num_elem_ref
        subroutine sdf_num_elem64_ref(dims, rc)
            import
            integer(c_int64_t), intent(in) :: dims(*)
            integer(c_int64_t), intent(out) :: rc
        end subroutine sdf_num_elem64_ref

        ! Lists of names (and tag values) as fields or allocated.
        subroutine sdf_list_ref(ch, templ, names, nfields, count, rc)
            import
            integer(c_int), intent(in) :: ch, nfields
            character(len=*), intent(in) :: templ
            character(len=*), intent(inout) :: names(*)
            integer(c_int), intent(out) :: count, rc
        end subroutine sdf_list_ref
        subroutine sdf_tag_list_ref(ch, templ, tags, names, values, nfields, count, rc)
            import
            integer(c_int), intent(in) :: ch, nfields
            character(len=*), intent(in) :: templ, tags
            character(len=*), intent(inout) :: names(*), values(*)
            integer(c_int), intent(out) :: count, rc
        end subroutine sdf_tag_list_ref
        subroutine sdf_list_alloc_ref(ch, templ, names, width, count, rc)
            import
            integer(c_int), intent(in) :: ch, width
            character(len=*), intent(in) :: templ
            type(c_ptr), intent(out) :: names
            integer(c_int), intent(out) :: count, rc
        end subroutine sdf_list_alloc_ref
        subroutine sdf_tag_list_alloc_ref(ch, templ, tags, names, values, width, count, rc)
            import
            integer(c_int), intent(in) :: ch, width
            character(len=*), intent(in) :: templ, tags
            type(c_ptr), intent(out) :: names, values
            integer(c_int), intent(out) :: count, rc
        end subroutine sdf_tag_list_alloc_ref
        ! The expression calculator (docs/expressions.md). A user function
        ! is a subroutine taking the channel number, integer(c_int).
        subroutine sdf_calc_ref(expr, rc)
            import
            character(len=*), intent(in) :: expr
            integer(c_int), intent(out) :: rc
        end subroutine sdf_calc_ref
        subroutine sdf_calc_chan_ref(ch, expr, rc)
            import
            integer(c_int), intent(in) :: ch
            character(len=*), intent(in) :: expr
            integer(c_int), intent(out) :: rc
        end subroutine sdf_calc_chan_ref
        subroutine sdf_calc_func_ref(name, fn, rc)
            import
            character(len=*), intent(in) :: name
            external :: fn
            integer(c_int), intent(out) :: rc
        end subroutine sdf_calc_func_ref
    end interface
end module zeltra_sdf
