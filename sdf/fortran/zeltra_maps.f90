! The zeltra_maps module: explicit interfaces of the utility library's
! by-reference forms for n-dimensional tables (maps) and response surfaces,
! under the same conventions as zeltra_sdf (external procedures without
! BIND(C), every argument by address, hidden size_t lengths of character
! arguments, the result also in the last argument rc). zeltra_sdf passes this
! module on, so a program only says `use zeltra_sdf`.
!  - tables hold default real (c_float) values, surfaces double precision;
!  - grid indices count from 0 and dimensions from 1, as in the C forms;
!  - a path is a blank-padded character variable.
module zeltra_maps
    use iso_c_binding, only: c_int, c_float, c_double
    implicit none
    private :: c_int, c_float, c_double

    interface
        ! N-dimensional tables.
        subroutine zu_ndimcreate_ref(handle, path, rc)
            import
            integer(c_int), intent(out) :: handle, rc
            character(len=*), intent(in) :: path
        end subroutine zu_ndimcreate_ref
        subroutine zu_ndimdelete_ref(handle, rc)
            import
            integer(c_int), intent(in) :: handle
            integer(c_int), intent(out) :: rc
        end subroutine zu_ndimdelete_ref
        subroutine zu_ndimgetdimensions_ref(handle, count, rc)
            import
            integer(c_int), intent(in) :: handle
            integer(c_int), intent(out) :: count, rc
        end subroutine zu_ndimgetdimensions_ref
        subroutine zu_ndimgetgridmin_ref(handle, dimension, value, rc)
            import
            integer(c_int), intent(in) :: handle, dimension
            real(c_float), intent(out) :: value
            integer(c_int), intent(out) :: rc
        end subroutine zu_ndimgetgridmin_ref
        subroutine zu_ndimgetgridmax_ref(handle, dimension, value, rc)
            import
            integer(c_int), intent(in) :: handle, dimension
            real(c_float), intent(out) :: value
            integer(c_int), intent(out) :: rc
        end subroutine zu_ndimgetgridmax_ref
        subroutine zu_ndimgetcurrentgridpoint_ref(handle, indices, axisvalues, rc)
            import
            integer(c_int), intent(in) :: handle
            integer(c_int), intent(inout) :: indices(*)
            real(c_float), intent(inout) :: axisvalues(*)
            integer(c_int), intent(out) :: rc
        end subroutine zu_ndimgetcurrentgridpoint_ref
        subroutine zu_ndiminterp_ref(handle, coords, value, rc)
            import
            integer(c_int), intent(in) :: handle
            real(c_float), intent(in) :: coords(*)
            real(c_float), intent(inout) :: value
            integer(c_int), intent(out) :: rc
        end subroutine zu_ndiminterp_ref
        subroutine zu_ndimaddgridpoint_ref(handle, dimension, value, tolerance, added, rc)
            import
            integer(c_int), intent(in) :: handle, dimension
            real(c_float), intent(in) :: value, tolerance
            integer(c_int), intent(out) :: added, rc
        end subroutine zu_ndimaddgridpoint_ref
        subroutine zu_ndimsetvalue_ref(handle, indices, value, rc)
            import
            integer(c_int), intent(in) :: handle
            integer(c_int), intent(in) :: indices(*)
            real(c_float), intent(in) :: value
            integer(c_int), intent(out) :: rc
        end subroutine zu_ndimsetvalue_ref
        subroutine zu_ndimwrite_ref(handle, path, rc)
            import
            integer(c_int), intent(in) :: handle
            character(len=*), intent(in) :: path
            integer(c_int), intent(out) :: rc
        end subroutine zu_ndimwrite_ref

        ! Response surfaces.
        subroutine zu_respcreate_ref(handle, dimensions, responses, gsize, alpha, nu, rc)
            import
            integer(c_int), intent(out) :: handle
            integer(c_int), intent(in) :: dimensions, responses
            real(c_double), intent(in) :: gsize(*)
            real(c_double), intent(in) :: alpha, nu
            integer(c_int), intent(out) :: rc
        end subroutine zu_respcreate_ref
        subroutine zu_respdelete_ref(handle, rc)
            import
            integer(c_int), intent(in) :: handle
            integer(c_int), intent(out) :: rc
        end subroutine zu_respdelete_ref
        subroutine zu_respaddpoint_ref(handle, position, response, rc)
            import
            integer(c_int), intent(in) :: handle
            real(c_double), intent(in) :: position(*), response(*)
            integer(c_int), intent(out) :: rc
        end subroutine zu_respaddpoint_ref
        subroutine zu_respsurf_ref(handle, position, response, rc)
            import
            integer(c_int), intent(in) :: handle
            real(c_double), intent(in) :: position(*)
            real(c_double), intent(inout) :: response(*)
            integer(c_int), intent(out) :: rc
        end subroutine zu_respsurf_ref
        subroutine zu_respnorm_ref(handle, a, b, distance, rc)
            import
            integer(c_int), intent(in) :: handle
            real(c_double), intent(in) :: a(*), b(*)
            real(c_double), intent(out) :: distance
            integer(c_int), intent(out) :: rc
        end subroutine zu_respnorm_ref
        subroutine zu_respcorr_ref(handle, a, b, correlation, rc)
            import
            integer(c_int), intent(in) :: handle
            real(c_double), intent(in) :: a(*), b(*)
            real(c_double), intent(out) :: correlation
            integer(c_int), intent(out) :: rc
        end subroutine zu_respcorr_ref
    end interface
end module zeltra_maps
