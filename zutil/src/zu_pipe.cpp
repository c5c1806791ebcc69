/*
 * zu_pipe.cpp - the pipe table: making the server end, connecting a client
 * end, closing either, and the socket calls behind them.
 *
 * The table holds 257 pointers, of which 1..256 are pipes; `nextFree` is the
 * lowest index known to be free (0 when the table is full). The table and
 * `nextFree` change only under the table's lock. Control records are
 * allocated before the lock is taken and errors are raised after it is
 * released, so a failing allocation that ends the process never meets the
 * lock held. A create or open that fails gives its slot back: the caller
 * holds no handle to a pipe that doesn't exist.
 */
#include "zu_pipe.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/un.h>
#include <unistd.h>

namespace {

const char kPrefix[] = "\\\\.\\pipe\\";
constexpr size_t kLongestName = ZU_PIPE_NAME_MAX - 1; /* sun_path less the leading NUL */

ZU_LockRec g_lock;
ZU_PipeCB *g_pipes[ZU_PIPE_MAX + 1]; /* guarded by g_lock */
int g_nextFree = 1;

int ioAccept4(int fd, int flags)
{
    return ::accept4(fd, nullptr, nullptr, flags);
}

int ioPeerUid(int fd, uid_t *uid)
{
    struct ucred cred;
    socklen_t length = sizeof cred;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &length) != 0)
        return -1;
    *uid = cred.uid;
    return 0;
}

ssize_t ioRecv(int fd, void *buf, size_t count, int flags)
{
    return ::recv(fd, buf, count, flags);
}

ssize_t ioSend(int fd, const void *buf, size_t count, int flags)
{
    return ::send(fd, buf, count, flags);
}

void raiseBadHandle(int handle, const char *routine)
{
    char message[64];
    snprintf(message, sizeof message, "Invalid pipe handle: %d", handle);
    zu_pipeRaise(routine, ZU_PIPE_BAD_HANDLE, message);
}

/* Under the lock: reserve the lowest free slot for `pipe`; 0 when full. */
int enter(ZU_PipeCB *pipe)
{
    if (g_nextFree == 0)
        return 0;
    int handle = g_nextFree;
    g_pipes[handle] = pipe;
    g_nextFree = 0;
    for (int i = handle + 1; i <= ZU_PIPE_MAX; ++i)
        if (!g_pipes[i]) {
            g_nextFree = i;
            break;
        }
    return handle;
}

/* Under the lock: the slot is free again. */
void leave(int handle)
{
    g_pipes[handle] = nullptr;
    if (g_nextFree == 0 || handle < g_nextFree)
        g_nextFree = handle;
}

/* Closes both descriptors; false when the system refused either (they are
 * gone all the same on Linux, so the fields are cleared in any case). */
bool closeAll(ZU_PipeCB *pipe, int *err)
{
    bool ok = true;
    for (int *fd : {&pipe->fd, &pipe->listenFd}) {
        if (*fd >= 0 && zu_pipeIo.close(*fd) != 0 && ok) {
            ok = false;
            *err = errno;
        }
        *fd = -1;
    }
    return ok;
}

void freePipe(ZU_PipeCB *pipe)
{
    ZU_freeMem(pipe->held);
    ZU_freeMem(pipe);
}

/* A fresh control record with no descriptors; null after raising. */
ZU_PipeCB *newPipe(const char *routine, int mode)
{
    auto *pipe = static_cast<ZU_PipeCB *>(ZU_allocMem(sizeof(ZU_PipeCB), "ZU_pipeCreate:pipeCB"));
    if (!pipe) {
        zu_pipeSystemError(routine, ENOMEM);
        return nullptr;
    }
    pipe->listenFd = -1;
    pipe->fd = -1;
    pipe->mode = mode;
    return pipe;
}

/* Enters `pipe` in the table; its handle, or 0 after raising "No free
 * pipes." and freeing it. */
int takeSlot(ZU_PipeCB *pipe, const char *routine)
{
    ZU_lock(&g_lock);
    int handle = enter(pipe);
    ZU_unlock(&g_lock);
    if (handle == 0) {
        freePipe(pipe);
        zu_pipeRaise(routine, ZU_PIPE_NO_FREE, "No free pipes.");
    }
    return handle;
}

/* Undoes takeSlot after a failure at the system. */
void dropSlot(int handle, ZU_PipeCB *pipe)
{
    int err = 0;
    closeAll(pipe, &err);
    ZU_lock(&g_lock);
    leave(handle);
    ZU_unlock(&g_lock);
    freePipe(pipe);
}

/* The abstract address of a full name and its length. */
socklen_t addressOf(const char *name, struct sockaddr_un *address)
{
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    size_t length = strlen(name);
    memcpy(address->sun_path + 1, name, length);
    return static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + 1 + length);
}

bool nameFits(const std::string &name, const char *routine)
{
    if (name.size() <= kLongestName)
        return true;
    zu_pipeRaise(routine, ZU_PIPE_SYSTEM_ERROR,
                 ("Pipe name longer than " + std::to_string(kLongestName) + " bytes: " + name).c_str());
    return false;
}

/* "\\.\pipe\" + the template, its first '*' and all behind it replaced. */
std::string fullNameOf(const char *nameTemplate, int handle)
{
    std::string name = kPrefix;
    const char *star = strchr(nameTemplate, '*');
    if (!star)
        return name + nameTemplate;
    name.append(nameTemplate, static_cast<size_t>(star - nameTemplate));
    return name + std::to_string(getpid()) + "_" + std::to_string(handle);
}

/* Binds and listens; 0 or the code after raising. */
int listenOn(ZU_PipeCB *pipe)
{
    const char *routine = "pipeCreate";
    pipe->listenFd = zu_pipeIo.socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (pipe->listenFd < 0)
        return zu_pipeSystemError(routine, errno);
    struct sockaddr_un address;
    socklen_t length = addressOf(pipe->name, &address);
    if (zu_pipeIo.bind(pipe->listenFd, reinterpret_cast<struct sockaddr *>(&address), length) != 0 ||
        zu_pipeIo.listen(pipe->listenFd, 1) != 0)
        return zu_pipeSystemError(routine, errno);
    pipe->state = ZU_PIPE_SERVER;
    return 0;
}

/* Connects without waiting, then makes the socket blocking for the reads
 * and writes that choose per call; 0 or the code after raising. */
int connectTo(ZU_PipeCB *pipe)
{
    const char *routine = "pipeOpen";
    pipe->fd = zu_pipeIo.socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (pipe->fd < 0)
        return zu_pipeSystemError(routine, errno);
    struct sockaddr_un address;
    socklen_t length = addressOf(pipe->name, &address);
    int rc;
    do {
        rc = zu_pipeIo.connect(pipe->fd, reinterpret_cast<struct sockaddr *>(&address), length);
    } while (rc != 0 && errno == EINTR);
    if (rc != 0)
        return zu_pipeSystemError(routine, errno);
    int flags = fcntl(pipe->fd, F_GETFL);
    if (flags < 0 || fcntl(pipe->fd, F_SETFL, flags & ~O_NONBLOCK) != 0)
        return zu_pipeSystemError(routine, errno);
    return zu_pipeCheckPeer(pipe->fd, pipe, routine);
}

} // namespace

const ZU_PipeIo zu_pipeIoDefault = {::socket, ::bind, ::listen, ioAccept4, ::connect,
                                    ioRecv,   ioSend, ioPeerUid, ::close};
ZU_PipeIo zu_pipeIo = zu_pipeIoDefault;

void zu_pipeRaise(const char *routine, int code, const char *message)
{
    ZU_Err(routine, code, ZU_SEV_ERROR, message);
}

int zu_pipeSystemError(const char *routine, int err)
{
    char reason[224];
    const char *text = strerror_r(err, reason, sizeof reason);
    char message[256];
    snprintf(message, sizeof message, "System error: %.224s", text ? text : "unknown");
    zu_pipeRaise(routine, ZU_PIPE_SYSTEM_ERROR, message);
    return ZU_PIPE_SYSTEM_ERROR;
}

int zu_pipeCheckPeer(int fd, const ZU_PipeCB *pipe, const char *routine)
{
    uid_t peer = 0;
    if (zu_pipeIo.peerUid(fd, &peer) != 0)
        return zu_pipeSystemError(routine, errno);
    uid_t self = geteuid();
    if (peer == self)
        return 0;
    char message[ZU_PIPE_NAME_MAX + 128];
    snprintf(message, sizeof message, "Pipe %s: refused the other end, which runs as user %u, not as user %u.",
             pipe->name, static_cast<unsigned>(peer), static_cast<unsigned>(self));
    zu_pipeRaise(routine, ZU_PIPE_REFUSED, message);
    return ZU_PIPE_REFUSED;
}

ZU_PipeCB *zu_pipeLookup(int handle, const char *routine)
{
    ZU_PipeCB *pipe = nullptr;
    if (handle >= 1 && handle <= ZU_PIPE_MAX) {
        ZU_lock(&g_lock);
        pipe = g_pipes[handle];
        ZU_unlock(&g_lock);
    }
    if (!pipe)
        raiseBadHandle(handle, routine);
    return pipe;
}

int zu_pipeState(int handle)
{
    if (handle < 1 || handle > ZU_PIPE_MAX)
        return -1;
    ZU_lock(&g_lock);
    ZU_PipeCB *pipe = g_pipes[handle];
    int state = pipe ? pipe->state : -1;
    ZU_unlock(&g_lock);
    return state;
}

void zu_pipeReset(void)
{
    ZU_lock(&g_lock);
    for (int i = 1; i <= ZU_PIPE_MAX; ++i) {
        if (ZU_PipeCB *pipe = g_pipes[i]) {
            int err = 0;
            closeAll(pipe, &err);
            freePipe(pipe);
            g_pipes[i] = nullptr;
        }
    }
    g_nextFree = 1;
    ZU_unlock(&g_lock);
}

extern "C" {

int ZU_pipeCreate(const char *nameTemplate, int *handle, char *fullName, int mode)
{
    const char *routine = "pipeCreate";
    if (handle)
        *handle = 0;
    if (fullName)
        fullName[0] = '\0';
    if (!nameTemplate || !handle) {
        zu_pipeRaise(routine, ZU_PIPE_SYSTEM_ERROR, "Invalid pointer");
        return ZU_PIPE_SYSTEM_ERROR;
    }
    ZU_PipeCB *pipe = newPipe(routine, mode);
    if (!pipe)
        return ZU_PIPE_SYSTEM_ERROR;
    int h = takeSlot(pipe, routine);
    if (h == 0)
        return ZU_PIPE_NO_FREE;
    std::string name = fullNameOf(nameTemplate, h);
    if (!nameFits(name, routine)) {
        dropSlot(h, pipe);
        return ZU_PIPE_SYSTEM_ERROR;
    }
    memcpy(pipe->name, name.c_str(), name.size() + 1);
    if (int rc = listenOn(pipe)) {
        dropSlot(h, pipe);
        return rc;
    }
    if (fullName)
        memcpy(fullName, pipe->name, name.size() + 1);
    *handle = h;
    return 0;
}

int ZU_pipeOpen(int *handle, const char *fullName, int mode)
{
    const char *routine = "pipeOpen";
    if (handle)
        *handle = 0;
    if (!handle || !fullName || !*fullName) {
        zu_pipeRaise(routine, ZU_PIPE_SYSTEM_ERROR, !handle || !fullName ? "Invalid pointer" : "Empty pipe name");
        return ZU_PIPE_SYSTEM_ERROR;
    }
    if (!nameFits(fullName, routine))
        return ZU_PIPE_SYSTEM_ERROR;
    ZU_PipeCB *pipe = newPipe(routine, mode);
    if (!pipe)
        return ZU_PIPE_SYSTEM_ERROR;
    memcpy(pipe->name, fullName, strlen(fullName) + 1);
    int h = takeSlot(pipe, routine);
    if (h == 0)
        return ZU_PIPE_NO_FREE;
    if (int rc = connectTo(pipe)) {
        dropSlot(h, pipe);
        return rc;
    }
    *handle = h;
    return 0;
}

int ZU_pipeClose(int handle)
{
    const char *routine = "pipeClose";
    int err = 0;
    bool found = false, closed = false;
    ZU_lock(&g_lock);
    ZU_PipeCB *pipe = handle >= 1 && handle <= ZU_PIPE_MAX ? g_pipes[handle] : nullptr;
    if (pipe) {
        found = true;
        closed = closeAll(pipe, &err);
        if (closed)
            leave(handle);
    }
    ZU_unlock(&g_lock);
    if (!found) {
        raiseBadHandle(handle, routine);
        return ZU_PIPE_BAD_HANDLE;
    }
    if (!closed)
        return zu_pipeSystemError(routine, err);
    freePipe(pipe);
    return 0;
}

} // extern "C"
