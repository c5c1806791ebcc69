! Must not compile: a channel passed where the module's interface wants the
! status text. The consumer test builds this to show that calls through the
! zeltra_sdf module are checked.
program fortran_misuse
    use zeltra_sdf
    implicit none
    integer :: ch, rc
    call sdf_open_ref(ch, 'x.sdf', 'BINARY', 'OLD', 'READ', rc)
    call sdf_close_ref(ch, ch, rc)
end program fortran_misuse
