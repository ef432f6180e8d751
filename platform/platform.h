/*
 * The services of the device's platform library, and the only header through which the update
 * system reaches them. On the device the vendor's library serves it; elsewhere the stand-in of
 * this directory does. All calls may be made from any thread.
 */
#ifndef PLATFORM_PLATFORM_H
#define PLATFORM_PLATFORM_H

#include "task_types.h"

#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Id of a session to a task; 0 means none. */
typedef uint32_t apsess_id_t;

/* Control record of one message. The caller holds it and does not look into it. */
typedef struct {
    char ctl[48];
    char pkt[128];
} apmsg_t;

/* Search key for a session. The caller holds it and does not look into it. */
typedef struct {
    aptid_t pid;
    char qname[60];
} apsess_key_t;

/* Writes one line to the device's log. `module` is the tag of the writing module, `func` the name
 * of the writing function. `level` is 0 everywhere. Returns 0; callers do not look at it. */
int aplog_printf(int level, const char *module, const char *func, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

/* Runs a command line through a shell and waits for its end. Returns the wait status of the shell,
 * or -1 if it could not be run. What the caller has written to standard output stands ahead of the
 * command's own output. */
int my_system(const char *cmd);
/* Opens a stream on the standard output ("r") of a command line, or null. my_pclose closes it,
 * waits for the command and returns its wait status, or -1. */
FILE *my_popen(const char *cmd, const char *mode);
int my_pclose(FILE *stream);

/* The card bit of this board. */
apcard_bit_t apcard_bit_self(void);
/* Names this process; called once, at its start. Returns 0, or -EINVAL for id 0. */
int aptid_self_set(aptid_t id);

/* Sends `size` bytes at `msg` to the mailbox of the task `dest`. They have been taken over on
 * return. Never waits for the receiver. Returns 0, or a negative errno if they did not go out:
 * -ENOENT or -ECONNREFUSED without a receiver, -EAGAIN with a full mailbox. */
int apipc_send(aptid_t dest, const void *msg, unsigned int size);

/* A message to a session: init, alloc, fill the buffer, detach, then atomic_send or free.
 * The buffer belongs to the message. A negative result of apmsg_atomic_send means that the message
 * did not go out and is still to be released by apmsg_free; otherwise it has been taken over. */
int apmsg_init(apmsg_t *apmsg);
void *apmsg_alloc(apmsg_t *apmsg, unsigned int size);
int apmsg_detach(apmsg_t *apmsg, void *buf);
int apmsg_atomic_send(apsess_id_t sess, apmsg_t *apmsg, int flag);
int apmsg_free(apmsg_t *apmsg);

/* Builds the key for the task `*pid`; `qname` may be null, `a`, `b` and `c` are 0. */
int apsess_key_init(apsess_key_t *key, aptid_t *pid, const char *qname, int a, int b, int c);
/* Stores the id of the session that `key` names in `*id` and returns 0, or leaves `*id` alone and
 * returns a negative errno if there is none. `flag` is 0. */
int apsess_find(apsess_id_t *id, apsess_key_t *key, int flag);

/* Opens the device's configuration. Returns 0, or a negative errno if it can't be read. */
int sysconf_openenv(void);
/* The value of `key`, valid in the calling thread until its next call, or null if there is none. */
char *sysconf_getenv(const char *key);

#ifdef __cplusplus
}
#endif

#endif
