#pragma once

/* Runs a function under a structured exception guard, so that a fault inside
   the Oracle client (an access violation, a failed delay-load) ends the
   guarded call instead of the process. Language exceptions of C++ pass
   through untouched. */

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*orasnap_guarded_fn)(void* arg);

/* Calls fn(arg). Returns 0 when it returned normally, else the code of the
   structured exception that ended it. Objects of the frames between the
   fault and the guard are not destroyed. */
unsigned long orasnap_seh_guarded_call(orasnap_guarded_fn fn, void* arg);

#ifdef __cplusplus
}
#endif
