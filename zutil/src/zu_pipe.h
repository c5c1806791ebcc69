/*
 * zu_pipe.h - what the pipe modules share: the control record of one pipe,
 * the table's lookups, the error texts, and the table of socket calls that
 * tests swap to inject faults.
 *
 * Invariants: a pipe end is an AF_UNIX sequenced-packet socket. A server
 * keeps its listening socket in `listenFd` and the accepted client, if any,
 * in `fd` with ZU_PIPE_CONNECTED set; a client has `fd` only. A descriptor
 * field is -1 when closed. `held` is the rest of a message longer than the
 * reader's buffer, handed out before anything new is received.
 */
#ifndef ZU_PIPE_H
#define ZU_PIPE_H

#include "zu_internal.h"

#include <sys/socket.h>
#include <sys/types.h>

/* State bits of a pipe end. */
#define ZU_PIPE_CONNECTED 1 /* a client is connected (server) */
#define ZU_PIPE_PENDING_BIT 2 /* the last read or connect found nothing yet */
#define ZU_PIPE_SERVER 4     /* the end made by ZU_pipeCreate */

struct ZU_PipeCB {
    int listenFd;
    int fd;
    int32_t mode;
    int32_t state;
    char name[ZU_PIPE_NAME_MAX];
    char *held;        /* tracked, or null */
    size_t heldSize;
    size_t heldAt;
};

/* The pipe of a valid handle (1..256 with an entry), else null after
 * raising "Invalid pipe handle: %d" under `routine`. */
ZU_PipeCB *zu_pipeLookup(int handle, const char *routine);

/* Raises `code` under `routine`, severity 3. */
void zu_pipeRaise(const char *routine, int code, const char *message);
/* "System error: " and the text of `err`, number 2; returns 2. */
int zu_pipeSystemError(const char *routine, int err);

/* 0 when the peer of `fd` runs as this process's effective user; else
 * raises ZU_PIPE_REFUSED (or a system error when the system can't tell) and
 * returns that code. `fd` is left open. */
int zu_pipeCheckPeer(int fd, const ZU_PipeCB *pipe, const char *routine);

/* The state bits of a handle, -1 when it holds no pipe (for tests). */
int zu_pipeState(int handle);

/* Socket calls of the pipe modules, swappable by tests. */
struct ZU_PipeIo {
    int (*socket)(int domain, int type, int protocol);
    int (*bind)(int fd, const struct sockaddr *addr, socklen_t length);
    int (*listen)(int fd, int backlog);
    int (*accept4)(int fd, int flags);
    int (*connect)(int fd, const struct sockaddr *addr, socklen_t length);
    ssize_t (*recv)(int fd, void *buf, size_t count, int flags);
    ssize_t (*send)(int fd, const void *buf, size_t count, int flags);
    int (*peerUid)(int fd, uid_t *uid);
    int (*close)(int fd);
};
extern ZU_PipeIo zu_pipeIo;
extern const ZU_PipeIo zu_pipeIoDefault;

#endif
