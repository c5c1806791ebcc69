! A Fortran program built outside the tree with the installed zeltra_sdf
! module, so the compiler checks every call: it writes a 2-D array of
! doubles and a 1-D array of integers, reads them back after a reopen (one
! into the program's own array, one into memory the library allocates), and
! deletes the file. It stops with an error on any mismatch; the path of the
! file comes as the first argument. It also sends messages through the
! library's message writer to a printer of its own and to a log file.
module consumer_outputs
    implicit none
    character(len=64) :: printed = ''
contains
    subroutine remember(text)
        character(len=*), intent(in) :: text
        printed = text
    end subroutine remember
end module consumer_outputs

program fortran_consumer
    use zeltra_sdf
    use consumer_outputs
    use iso_c_binding, only: c_ptr, c_f_pointer
    implicit none
    integer :: ch, rc, nread, count, i
    double precision :: grid(2, 3), back(2, 3)
    integer :: steps(4)
    integer, pointer :: got(:)
    character(len=8) :: units, names(4)
    character(len=256) :: path, line
    type(c_ptr) :: mem

    call get_command_argument(1, path)
    grid = reshape([(0.5d0 * i, i = 1, 6)], [2, 3])
    steps = [(i * i, i = 1, 4)]

    call sdf_open_ref(ch, path, 'BINARY', 'FRESH', 'WRITE', rc)
    call expect(rc, 0, 'open')
    call sdf_define_arr2d_ref(ch, 'grid', SDF_DBLE_T, 0, 2, 3, 'Pa', 'pressure', rc)
    call expect(rc, 0, 'define grid')
    call sdf_write_arr2d_ref(ch, 'grid', grid, 1, 1, 6, rc)
    call expect(rc, 0, 'write grid')
    call sdf_define_arr1d_ref(ch, 'steps', SDF_INT_T, 0, 4, ' ', ' ', rc)
    call sdf_write_arr1d_ref(ch, 'steps', steps, 1, 4, rc)
    call expect(rc, 0, 'write steps')
    call sdf_close_ref(ch, 'KEEP', rc)
    call expect(rc, 0, 'close')

    call sdf_open_ref(ch, path, 'BINARY', 'OLD', 'READ', rc)
    call expect(rc, 0, 'reopen')
    back = 0
    call sdf_read_arr2d_ref(ch, 'grid', back, 1, 1, 6, nread, rc)
    call expect(rc, 0, 'read grid')
    if (any(back /= grid)) error stop 'grid read back wrong'
    call sdf_get_units_ref(ch, 'grid', units, rc)
    if (units /= 'Pa') error stop 'units read back wrong'
    call sdf_list_ref(ch, '*', names, size(names), count, rc)
    call expect(count, 2, 'list count')
    if (names(1) /= 'grid' .or. names(2) /= 'steps') error stop 'names listed wrong'
    call sdf_read_all1d_ref(ch, 'steps', mem, 0, 2, 0, nread, rc)
    call expect(rc, 0, 'read all')
    call expect(nread, 3, 'read all count')
    call c_f_pointer(mem, got, [nread])
    call expect(sum(abs(got - steps(2:4))), 0, 'read all values')
    call sdf_free_ref(mem, rc)
    call sdf_close_ref(ch, 'KEEP', rc)
    call expect(rc, 0, 'close again')

    call sdf_open_ref(ch, path, 'BINARY', 'OLD', 'WRITE', rc)
    call sdf_close_ref(ch, 'DELETE', rc)
    call expect(rc, 0, 'delete')

    call zu_wrmesprinterlen_ref(remember)
    call zu_wrmeslog_ref(trim(path) // '.log', 'write', rc)
    call expect(rc, 0, 'log open')
    call zu_wrmes_ref('from fortran    ')
    call zu_wrmeslog_ref(' ', ' ', rc)
    if (printed /= 'from fortran' .or. len_trim(printed) /= 12) error stop 'printer got the message wrong'
    open (newunit=i, file=trim(path) // '.log', status='old', action='read')
    read (i, '(a)') line
    close (i, status='delete')
    if (line /= 'from fortran') error stop 'log got the message wrong'

contains

    subroutine expect(actual, wanted, what)
        integer, intent(in) :: actual, wanted
        character(len=*), intent(in) :: what
        if (actual /= wanted) then
            print '(a, ": got ", i0, ", wanted ", i0)', what, actual, wanted
            error stop 1
        end if
    end subroutine expect

end program fortran_consumer
