! A Fortran caller of the SDF library's by-reference forms, through the
! names gfortran gives external procedures (lower case, trailing underscore,
! hidden lengths at the end). It writes and reads arrays of ranks 1 to 3 with
! indices from 1, character fields, lists names into fields, and reads into
! memory the library allocates. Any mismatch stops with an error.
program sdf_ref_forms
    use iso_c_binding, only: c_ptr, c_f_pointer, c_null_ptr, c_associated
    implicit none
    integer :: ch, rc, nread, count, i, clen
    integer :: v1(5), r1(5), v2(3, 2), r2(2), v3(2, 2, 2), r3(8), dims(8)
    character(len=6) :: words(3), got(3)
    character(len=12) :: names(2)
    character(len=8) :: units
    character(len=256) :: path
    type(c_ptr) :: mem
    integer, pointer :: all(:)

    call get_command_argument(1, path)
    call sdf_open_ref(ch, path, 'BINARY', 'FRESH', 'WRITE', rc)
    call expect(rc, 0, 'open')

    v1 = [(10 * i, i = 1, 5)]
    v2 = reshape([(i, i = 1, 6)], [3, 2])
    v3 = reshape([(100 + i, i = 1, 8)], [2, 2, 2])
    call sdf_define_arr1d_ref(ch, 'vec    ', 11, 0, 5, 'm', 'rank one', rc)
    call expect(rc, 0, 'define 1')
    call sdf_define_arr2d_ref(ch, 'mat', 11, 0, 3, 2, ' ', ' ', rc)
    call expect(rc, 0, 'define 2')
    call sdf_set_dims_ref(3, dims, 2, 2, 2, rc)
    call expect(rc, 0, 'set dims')
    call sdf_define_array_ref(ch, 'cube', 11, 0, dims, ' ', ' ', rc)
    call expect(rc, 0, 'define 3')
    call sdf_define_arr1d_ref(ch, 'words', 1, 6, 3, ' ', ' ', rc)
    call expect(rc, 0, 'define words')

    call sdf_write_arr1d_ref(ch, 'vec', v1, 1, 5, rc)
    call expect(rc, 0, 'write 1')
    call sdf_write_arr2d_ref(ch, 'mat', v2, 1, 1, 6, rc)
    call expect(rc, 0, 'write 2')
    call sdf_write_arr3d_ref(ch, 'cube', v3, 1, 1, 1, 8, rc)
    call expect(rc, 0, 'write 3')
    words = [character(len=6) :: 'one', 'two', 'three']
    call sdf_write_carr1d_ref(ch, 'words', words, 1, 3, rc)
    call expect(rc, 0, 'write words')
    call sdf_write_arr2d_ref(ch, 'vec', v2, 1, 1, 1, rc)
    call expect(rc, 3000, 'rank 2 on a 1-D array')
    call sdf_close_ref(ch, 'KEEP', rc)
    call expect(rc, 0, 'close')

    call sdf_open_ref(ch, path, 'BINARY', 'OLD', 'READ', rc)
    call expect(rc, 0, 'reopen')
    r1 = 0
    call sdf_read_arr1d_ref(ch, 'vec', r1, 1, 0, nread, rc)
    call expect(rc, 0, 'read 1')
    call expect(nread, 5, 'read 1 count')
    call expect(sum(abs(r1 - v1)), 0, 'read 1 values')
    call sdf_read_arr2d_ref(ch, 'mat', r2, 2, 2, 2, nread, rc)  ! (2,2) and (3,2)
    call expect(r2(1) * 10 + r2(2), v2(2, 2) * 10 + v2(3, 2), 'read 2 values')
    call sdf_read_arr3d_ref(ch, 'cube', r3, 1, 1, 1, 8, nread, rc)
    call expect(sum(abs(r3 - reshape(v3, [8]))), 0, 'read 3 values')
    call sdf_get_dims_ref(ch, 'cube', dims, rc)
    call expect(dims(1) * 1000 + dims(4), 3002, 'dims of cube')

    got = 'xxxxxx'
    call sdf_read_carr1d_ref(ch, 'words', got, 2, 2, nread, rc)
    call expect(rc, 0, 'read words')
    if (got(1) /= 'two' .or. got(2) /= 'three' .or. got(3) /= 'xxxxxx') error stop 'words read back wrong'
    call sdf_get_units_ref(ch, 'vec', units, rc)
    if (units /= 'm') error stop 'units read back wrong'

    call sdf_list_ref(ch, '*', names, 2, count, rc)
    call expect(rc, 0, 'list')
    call expect(count, 4, 'list count')
    if (names(1) /= 'cube' .or. names(2) /= 'mat') error stop 'names listed wrong'

    clen = 0
    call sdf_read_all1d_ref(ch, 'vec', mem, clen, 2, 0, nread, rc)
    call expect(rc, 0, 'read all')
    call expect(nread, 4, 'read all count')
    call c_f_pointer(mem, all, [nread])
    call expect(all(1) + all(4), 20 + 50, 'read all values')
    call sdf_free_ref(mem, rc)
    call expect(rc, 1, 'free')
    mem = c_null_ptr
    if (c_associated(mem)) error stop 'pointer not cleared'

    call sdf_close_ref(ch, 'KEEP', rc)
    call expect(rc, 0, 'close again')
    call sdf_open_ref(ch, path, 'BINARY', 'OLD', 'WRITE', rc)
    call sdf_close_ref(ch, 'DELETE', rc)
    call expect(rc, 0, 'delete')

contains

    subroutine expect(actual, wanted, what)
        integer, intent(in) :: actual, wanted
        character(len=*), intent(in) :: what
        if (actual /= wanted) then
            print '(a, ": got ", i0, ", wanted ", i0)', what, actual, wanted
            error stop 1
        end if
    end subroutine expect

end program sdf_ref_forms
