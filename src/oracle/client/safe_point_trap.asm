; The trap a late guarded thread returns to (see guarded_thread.cpp), for
; MSVC, which has no inline assembly on x64. It comes here by a return, not a
; call, so the stack is aligned afresh before the call.
EXTERN orasnap_safe_point_reached:PROC

.CODE
orasnap_safe_point_trap PROC
    and rsp, -16
    sub rsp, 32
    call orasnap_safe_point_reached
    int 3
orasnap_safe_point_trap ENDP
END
