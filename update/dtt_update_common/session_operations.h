// Messages to the session of a task.
#ifndef UPDATE_DTT_UPDATE_COMMON_SESSION_OPERATIONS_H
#define UPDATE_DTT_UPDATE_COMMON_SESSION_OPERATIONS_H

#include "platform/platform.h"

// The session to the task `pid`, or 0 if there is none. `qname` may be null.
apsess_id_t Simdc_sess_id(aptid_t pid, const char *qname);

// Sends the message of `apmsg`, whose filled buffer is `bufp`, and lets go of it whatever becomes
// of it. Returns 0 if it went out, else -1.
int Simdc_sess_send(apsess_id_t sess_id, apmsg_t *apmsg, unsigned char *bufp);

// Writes a Flabel_t with the low 16 bits of `large` and `small` to `bufp`. Returns its size, 8.
int Simdc_lbl_edit(unsigned char *bufp, int large, int small, int size);

#endif
