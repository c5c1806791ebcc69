/*
 * zu_pipe_io.cpp - reading and writing pipe messages.
 *
 * A message is one sequenced packet. The reader learns a message's size
 * before it takes it (a peek that reports the full length), so a message
 * longer than the caller's buffer is taken whole into `held` and handed out
 * in parts over the following reads, each with result 0: nothing is ever cut
 * off. A server end takes its client on the first read or write; when the
 * client goes, the server drops that connection and the next read serves a
 * new client. Sends never raise SIGPIPE. Neither operation takes the table's
 * lock: a handle belongs to one thread at a time.
 */
#include "zu_pipe.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <poll.h>

namespace {

bool wouldBlock(int err)
{
    return err == EAGAIN || err == EWOULDBLOCK;
}

/* The other end has gone: a server forgets its client. */
int gone(ZU_PipeCB *pipe)
{
    if (pipe->state & ZU_PIPE_SERVER) {
        if (pipe->fd >= 0)
            zu_pipeIo.close(pipe->fd);
        pipe->fd = -1;
        pipe->state &= ~ZU_PIPE_CONNECTED;
    }
    return ZU_PIPE_GONE;
}

/* A server end without a client takes one: 0 connected, ZU_PIPE_PENDING
 * when none is waiting and `wait` is false, else the code after raising. */
int takeClient(ZU_PipeCB *pipe, bool wait, const char *routine)
{
    for (;;) {
        int fd = zu_pipeIo.accept4(pipe->listenFd, SOCK_CLOEXEC);
        if (fd >= 0) {
            if (int rc = zu_pipeCheckPeer(fd, pipe, routine)) {
                zu_pipeIo.close(fd);
                return rc;
            }
            pipe->fd = fd;
            pipe->state = (pipe->state | ZU_PIPE_CONNECTED) & ~ZU_PIPE_PENDING_BIT;
            return 0;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (!wouldBlock(errno))
            return zu_pipeSystemError(routine, errno);
        if (!wait)
            return ZU_PIPE_PENDING;
        struct pollfd ready = {pipe->listenFd, POLLIN, 0};
        if (poll(&ready, 1, -1) < 0 && errno != EINTR)
            return zu_pipeSystemError(routine, errno);
    }
}

ssize_t recvRetry(int fd, void *buf, size_t count, int flags)
{
    ssize_t n;
    do {
        n = zu_pipeIo.recv(fd, buf, count, flags);
    } while (n < 0 && errno == EINTR);
    return n;
}

/* Hands out the next part of a held message. */
int serveHeld(ZU_PipeCB *pipe, void *buffer, int size, int *count)
{
    size_t part = pipe->heldSize - pipe->heldAt;
    if (part > static_cast<size_t>(size))
        part = static_cast<size_t>(size);
    memcpy(buffer, pipe->held + pipe->heldAt, part);
    pipe->heldAt += part;
    if (pipe->heldAt == pipe->heldSize) {
        ZU_freeMem(pipe->held);
        pipe->held = nullptr;
        pipe->heldSize = pipe->heldAt = 0;
    }
    *count = static_cast<int>(part);
    return 0;
}

/* Takes a message of `length` bytes that is known to be waiting. */
int take(ZU_PipeCB *pipe, size_t length, void *buffer, int size, int *count)
{
    const char *routine = "pipeRead";
    if (length <= static_cast<size_t>(size)) {
        ssize_t n = recvRetry(pipe->fd, buffer, static_cast<size_t>(size), MSG_DONTWAIT);
        if (n < 0)
            return zu_pipeSystemError(routine, errno);
        *count = static_cast<int>(n);
        return 0;
    }
    char *whole = static_cast<char *>(ZU_allocMemNoZero(length, "ZU_pipeRead:message"));
    if (!whole)
        return zu_pipeSystemError(routine, ENOMEM);
    ssize_t n = recvRetry(pipe->fd, whole, length, MSG_DONTWAIT);
    if (n < 0) {
        int err = errno;
        ZU_freeMem(whole);
        return zu_pipeSystemError(routine, err);
    }
    pipe->held = whole;
    pipe->heldSize = static_cast<size_t>(n);
    pipe->heldAt = 0;
    return serveHeld(pipe, buffer, size, count);
}

bool badBuffer(const void *buffer, int size, int handle, const char *routine, bool reading)
{
    if (buffer && size >= (reading ? 1 : 0))
        return false;
    char message[96];
    snprintf(message, sizeof message, "Invalid buffer or size %d for pipe %d", size, handle);
    zu_pipeRaise(routine, ZU_PIPE_SYSTEM_ERROR, message);
    return true;
}

bool wrongEnd(const ZU_PipeCB *pipe, int handle, const char *routine, bool reading)
{
    if (((pipe->mode & ZU_PIPE_WRITE) != 0) != reading)
        return false;
    char message[ZU_PIPE_NAME_MAX + 96];
    snprintf(message, sizeof message, "Pipe %d (%s) is the %s end and cannot be %s.", handle, pipe->name,
             reading ? "writing" : "reading", reading ? "read" : "written");
    zu_pipeRaise(routine, ZU_PIPE_SYSTEM_ERROR, message);
    return true;
}

} // namespace

extern "C" {

int ZU_pipeRead(int handle, void *buffer, int size, int *count)
{
    const char *routine = "pipeRead";
    if (count)
        *count = 0;
    ZU_PipeCB *pipe = zu_pipeLookup(handle, routine);
    if (!pipe)
        return ZU_PIPE_BAD_HANDLE;
    if (badBuffer(count ? buffer : nullptr, size, handle, routine, true) || wrongEnd(pipe, handle, routine, true))
        return ZU_PIPE_SYSTEM_ERROR;
    if (pipe->held)
        return serveHeld(pipe, buffer, size, count);
    const bool wait = (pipe->mode & ZU_PIPE_NOWAIT) == 0;
    if ((pipe->state & ZU_PIPE_SERVER) && !(pipe->state & ZU_PIPE_CONNECTED)) {
        int rc = takeClient(pipe, wait, routine);
        if (rc == ZU_PIPE_PENDING)
            pipe->state |= ZU_PIPE_PENDING_BIT;
        if (rc)
            return rc;
    }
    if (pipe->fd < 0)
        return ZU_PIPE_GONE;
    ssize_t length = recvRetry(pipe->fd, nullptr, 0, MSG_PEEK | MSG_TRUNC | (wait ? 0 : MSG_DONTWAIT));
    if (length < 0) {
        if (!wait && wouldBlock(errno)) {
            pipe->state |= ZU_PIPE_PENDING_BIT;
            return ZU_PIPE_PENDING;
        }
        if (errno == ECONNRESET)
            return gone(pipe);
        return zu_pipeSystemError(routine, errno);
    }
    pipe->state &= ~ZU_PIPE_PENDING_BIT;
    if (length == 0)
        return gone(pipe);
    return take(pipe, static_cast<size_t>(length), buffer, size, count);
}

int ZU_pipeWrite(int handle, const void *buffer, int size)
{
    const char *routine = "pipeWrite";
    ZU_PipeCB *pipe = zu_pipeLookup(handle, routine);
    if (!pipe)
        return ZU_PIPE_BAD_HANDLE;
    if (badBuffer(buffer || size == 0 ? "" : nullptr, size, handle, routine, false) ||
        wrongEnd(pipe, handle, routine, false))
        return ZU_PIPE_SYSTEM_ERROR;
    if (size == 0)
        return 0;
    if ((pipe->state & ZU_PIPE_SERVER) && !(pipe->state & ZU_PIPE_CONNECTED)) {
        int rc = takeClient(pipe, false, routine);
        if (rc == ZU_PIPE_PENDING) {
            char message[ZU_PIPE_NAME_MAX + 96];
            snprintf(message, sizeof message, "System error: no process has opened the other end of pipe %s yet.",
                     pipe->name);
            zu_pipeRaise(routine, ZU_PIPE_SYSTEM_ERROR, message);
            return ZU_PIPE_SYSTEM_ERROR;
        }
        if (rc)
            return rc;
    }
    if (pipe->fd < 0)
        return zu_pipeSystemError(routine, EPIPE);
    ssize_t n;
    do {
        n = zu_pipeIo.send(pipe->fd, buffer, static_cast<size_t>(size), MSG_NOSIGNAL);
    } while (n < 0 && errno == EINTR);
    if (n == size)
        return 0;
    int err = n < 0 ? errno : EMSGSIZE;
    if (err == EPIPE || err == ECONNRESET || err == ENOTCONN)
        gone(pipe);
    return zu_pipeSystemError(routine, err);
}

} // extern "C"
