! The zeltra_messages module: explicit interfaces of the utility library's
! by-reference forms of the message writer, under the same conventions as
! zeltra_sdf (external procedures without BIND(C), every argument by address,
! hidden size_t lengths of character arguments). zeltra_sdf passes this
! module on, so a program only says `use zeltra_sdf`.
!  - texts are blank-padded character variables; trailing blanks are dropped;
!  - an output given to zu_wrmesprinterlen_ref or zu_wrmesecholen_ref is a
!    subroutine of one character(len=*) argument: it receives each message
!    without a terminator, its length as the character length.
module zeltra_messages
    use iso_c_binding, only: c_int
    implicit none
    private :: c_int

    abstract interface
        subroutine zu_message_output(text)
            character(len=*), intent(in) :: text
        end subroutine zu_message_output
    end interface

    interface
        subroutine zu_wrmes_ref(text)
            character(len=*), intent(in) :: text
        end subroutine zu_wrmes_ref
        subroutine zu_wrmeslog_ref(path, mode, rc)
            import
            character(len=*), intent(in) :: path, mode
            integer(c_int), intent(out) :: rc
        end subroutine zu_wrmeslog_ref
        subroutine zu_wrmespipe_ref(handle)
            import
            integer(c_int), intent(in) :: handle
        end subroutine zu_wrmespipe_ref
        subroutine zu_wrmesprinterlen_ref(printer)
            import
            procedure(zu_message_output) :: printer
        end subroutine zu_wrmesprinterlen_ref
        subroutine zu_wrmesecholen_ref(echo)
            import
            procedure(zu_message_output) :: echo
        end subroutine zu_wrmesecholen_ref
    end interface
end module zeltra_messages
