/*
 * zu_errset.cpp - the process-wide error set.
 *
 * Routines deposit numbered messages with a severity; the application reads,
 * counts, prints and clears them by routine pattern. Records stay in order of
 * arrival in one list; each distinct routine name has one routine record with
 * its counts. Invariants, kept under the error lock:
 *  - a record's `routine` is the name stored right behind its routine record,
 *    and its message is stored right behind the record itself;
 *  - process and routine "now" counts equal the records held, and `worst` is
 *    the highest severity among them (0 when none);
 *  - totals only grow;
 *  - any change of the record list resets the iterator of ZU_errNext.
 * Nothing is allocated or printed while the lock is held, so a failing
 * allocation (which may end the process) never meets a held lock.
 */
#include "zu_internal.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Routine {
    ZU_Node node;
    int worst;
    int count;
    int bySeverity[5]; /* [0] unused, kept so indexes read as severities */
    int totalCount;
    int totalBySeverity[5];
    char *name() { return reinterpret_cast<char *>(this + 1); }
};

struct State {
    ZU_List routines;
    ZU_List errors;
    int now[5];   /* [0] sum, [1..4] by severity */
    int total[5];
    int worst;
    int iterIndex;
    ZU_Node *iterNode;
    char text[1024];
};

State g_state;
ZU_LockRec g_lock;
std::atomic<bool> g_initialised{false};
std::mutex g_initMutex;
bool g_atexitDone = false;

const char *const kNames[5] = {"", "Message", "Warning", "Error", "Bug"};
const char *const kUpper[5] = {" ", "MESSAGE", "WARNING", "ERROR", "BUG"};

int clampSeverity(int severity)
{
    return severity < 0 ? 0 : severity > 4 ? 4 : severity;
}

Routine *routineOf(const ZU_ErrRec *rec)
{
    return reinterpret_cast<Routine *>(const_cast<char *>(rec->routine)) - 1;
}

/* A routine pattern, compiled once per operation. */
struct Matcher {
    unsigned char buffer[ZU_PAT_BUFSIZE];
    int all = 0;
    bool usable = false;
    explicit Matcher(const char *pattern)
    {
        usable = zu_patCompileQuiet(pattern, buffer, &all) != 0 || all;
    }
    bool matches(const char *name) const
    {
        return usable && (all || ZU_patMatch(name, buffer));
    }
};

void printLine(const char *routine, int number, int severity, const char *message)
{
    fprintf(stderr, "%s %d from %s: %s\n", kNames[clampSeverity(severity)], number,
            routine ? routine : "", message ? message : "");
}

Routine *findRoutine(const char *name)
{
    for (ZU_Node *n = g_state.routines.head; n->next; n = n->next) {
        auto *r = reinterpret_cast<Routine *>(n);
        if (strcmp(r->name(), name) == 0)
            return r;
    }
    return nullptr;
}

void recomputeWorst()
{
    g_state.worst = 0;
    for (ZU_Node *n = g_state.routines.head; n->next; n = n->next) {
        auto *r = reinterpret_cast<Routine *>(n);
        r->worst = 0;
        for (int s = 4; s >= 1 && !r->worst; --s)
            if (r->bySeverity[s])
                r->worst = s;
        g_state.worst = std::max(g_state.worst, r->worst);
    }
}

/* Under the lock: unlink one record and take it off every count. */
void unlinkRecord(ZU_ErrRec *rec)
{
    Routine *r = routineOf(rec);
    ZU_listRemove(&rec->node);
    --r->count;
    --r->bySeverity[rec->severity];
    --g_state.now[0];
    --g_state.now[rec->severity];
    g_state.iterIndex = 0;
    g_state.iterNode = nullptr;
}

/* Under the lock: record `rec` (message already in place) for `fresh`'s
 * name; returns true when `fresh` was taken into the routine list. */
bool store(ZU_ErrRec *rec, Routine *fresh, int severity)
{
    Routine *r = findRoutine(fresh->name());
    bool taken = r == nullptr;
    if (taken) {
        r = fresh;
        ZU_listAddTail(&g_state.routines, &r->node);
    }
    rec->routine = r->name();
    rec->severity = severity;
    ZU_listAddTail(&g_state.errors, &rec->node);
    g_state.iterIndex = 0; /* counting from the newest, indexes shift */
    g_state.iterNode = nullptr;
    g_state.worst = std::max(g_state.worst, severity);
    r->worst = std::max(r->worst, severity);
    ++g_state.now[0];
    ++g_state.now[severity];
    ++g_state.total[0];
    ++g_state.total[severity];
    ++r->count;
    ++r->bySeverity[severity];
    ++r->totalCount;
    ++r->totalBySeverity[severity];
    return taken;
}

void record(const char *routine, int number, int severity, const char *message)
{
    size_t msgLen = strlen(message);
    size_t nameLen = strlen(routine);
    auto *rec = static_cast<ZU_ErrRec *>(ZU_allocMem(sizeof(ZU_ErrRec) + msgLen + 1, "ZU_Err"));
    auto *fresh = static_cast<Routine *>(ZU_allocMem(sizeof(Routine) + nameLen + 1, "Routine"));
    if (!rec || !fresh) {
        ZU_freeMem(rec);
        ZU_freeMem(fresh);
        return;
    }
    rec->message = reinterpret_cast<char *>(rec + 1);
    memcpy(rec->message, message, msgLen + 1);
    rec->number = number;
    memcpy(fresh->name(), routine, nameLen + 1);
    ZU_lock(&g_lock);
    bool taken = store(rec, fresh, std::min(severity, 4));
    ZU_unlock(&g_lock);
    if (!taken)
        ZU_freeMem(fresh);
}

void report(const char *routine, int number, int severity, const char *message, int out)
{
    routine = routine ? routine : "";
    message = message ? message : "";
    if ((out & 1) && severity >= 1 && number != 0) {
        zu_errInit(1);
        record(routine, number, severity, message);
    }
    if (out & 2)
        printLine(routine, number, severity, message);
}

/* Under the lock: removes matching records of the given severity (0: all). */
void clearLocked(const Matcher &m, int severity)
{
    ZU_Node *n = g_state.errors.head;
    while (n->next) {
        ZU_Node *next = n->next;
        auto *rec = reinterpret_cast<ZU_ErrRec *>(n);
        if ((severity == 0 || rec->severity == severity) && m.matches(rec->routine)) {
            unlinkRecord(rec);
            ZU_freeMem(rec);
        }
        n = next;
    }
    recomputeWorst();
}

/* Under the lock: the node at a signed 1-based index (see ZU_errNext). */
ZU_Node *nodeAt(int index)
{
    if (index == g_state.iterIndex && g_state.iterNode)
        return g_state.iterNode;
    if (index == 1)
        return g_state.errors.head;
    if (index == -1)
        return g_state.errors.tailPred;
    return ZU_listNth(&g_state.errors, index > 0 ? index - 1 : g_state.now[0] + index);
}

ZU_ErrRec *nextLocked(const Matcher &m, int *index)
{
    int count = g_state.now[0];
    if (*index == 0 || *index > count || *index < -count) {
        *index = 0;
        return nullptr;
    }
    ZU_Node *n = nodeAt(*index);
    while (n && n->next && n->prev) {
        int step = *index > 0 ? 1 : -1;
        *index += step;
        if (*index > count || *index < -count)
            *index = 0;
        ZU_Node *next = *index == 0 ? nullptr : step > 0 ? n->next : n->prev;
        g_state.iterIndex = *index;
        g_state.iterNode = next;
        auto *rec = reinterpret_cast<ZU_ErrRec *>(n);
        if (m.matches(rec->routine))
            return rec;
        n = next;
    }
    *index = 0;
    return nullptr;
}

void appendText(char *out, size_t size, size_t &at, const char *text)
{
    while (*text && at + 1 < size)
        out[at++] = *text++;
}

void expand(const char *format, const ZU_ErrRec *rec, char *out, size_t size)
{
    size_t at = 0;
    int sev = rec ? clampSeverity(rec->severity) : 0;
    char number[16];
    snprintf(number, sizeof number, "%d", rec ? rec->number : 0);
    for (const char *p = format ? format : ""; *p && at + 1 < size; ++p) {
        const char *piece = nullptr;
        if (*p == '$') {
            switch (p[1]) {
            case 'E': piece = number; break;
            case 'M': piece = rec && rec->message ? rec->message : ""; break;
            case 'R': piece = rec && rec->routine ? rec->routine : ""; break;
            case 'S': piece = kUpper[sev]; break;
            case 's': piece = sev ? kNames[sev] : " "; break;
            default: break;
            }
        } else if (*p == '\\') {
            piece = p[1] == '\\' ? "\\" : p[1] == 'n' ? "\n" : p[1] == 't' ? "\t" : nullptr;
        }
        if (piece) {
            appendText(out, size, at, piece);
            ++p;
        } else {
            out[at++] = *p;
        }
    }
    out[at] = '\0';
}

} // namespace

void zu_errRaise(const char *routine, int number, int severity, const char *message, int errorOut)
{
    /* A bug is always shown, wherever errors go otherwise. */
    report(routine, number, severity, message, severity >= 4 ? errorOut | 2 : errorOut);
}

void zu_errInit(int atexitFlag)
{
    if (g_initialised.load(std::memory_order_acquire))
        return;
    /* The allocator first, so that its exit handler runs after ours. */
    zu_memEnsureInit(1);
    std::lock_guard<std::mutex> guard(g_initMutex);
    if (g_initialised.load(std::memory_order_relaxed))
        return;
    ZU_lock(&g_lock);
    g_state = State{};
    ZU_listInit(&g_state.routines);
    ZU_listInit(&g_state.errors);
    ZU_unlock(&g_lock);
    if (atexitFlag && !g_atexitDone) {
        atexit(zu_errCleanup);
        g_atexitDone = true;
    }
    g_initialised.store(true, std::memory_order_release);
}

void zu_errCleanup(void)
{
    std::lock_guard<std::mutex> guard(g_initMutex);
    if (!g_initialised.load(std::memory_order_relaxed))
        return;
    ZU_lock(&g_lock);
    while (ZU_Node *n = ZU_listRemTail(&g_state.errors))
        ZU_freeMem(n);
    while (ZU_Node *n = ZU_listRemTail(&g_state.routines))
        ZU_freeMem(n);
    g_state.iterNode = nullptr;
    ZU_unlock(&g_lock);
    g_initialised.store(false, std::memory_order_release);
}

extern "C" {

void ZU_Err(const char *routine, int number, int severity, const char *message)
{
    zu_errRaise(routine, number, severity, message, ZU_optValue(ZU_OPT_ERROR_OUT));
}

void ZU_ErrQuiet(const char *routine, int number, int severity, const char *message)
{
    report(routine, number, severity, message, 1);
}

void ZU_errClear(const char *pattern, int severity)
{
    if (!g_initialised.load(std::memory_order_acquire))
        return;
    Matcher m(pattern);
    ZU_lock(&g_lock);
    clearLocked(m, clampSeverity(severity));
    ZU_unlock(&g_lock);
}

int ZU_errDelete(ZU_ErrRec *rec)
{
    if (!rec || !g_initialised.load(std::memory_order_acquire))
        return 1;
    ZU_lock(&g_lock);
    bool held = false;
    for (ZU_Node *n = g_state.errors.head; n->next && !held; n = n->next)
        held = n == &rec->node;
    if (held) {
        unlinkRecord(rec);
        recomputeWorst();
    }
    ZU_unlock(&g_lock);
    if (held)
        ZU_freeMem(rec);
    return held ? 0 : 1;
}

void ZU_errCounts(const char *pattern, int number, int now[5], int total[5])
{
    int localNow[5], localTotal[5];
    now = now ? now : localNow;
    total = total ? total : localTotal;
    std::fill(now, now + 5, 0);
    std::fill(total, total + 5, 0);
    if (!g_initialised.load(std::memory_order_acquire))
        return;
    Matcher m(pattern);
    ZU_lock(&g_lock);
    if (m.all) {
        std::copy(g_state.now, g_state.now + 5, now);
        std::copy(g_state.total, g_state.total + 5, total);
    } else {
        for (ZU_Node *n = g_state.routines.head; n->next; n = n->next) {
            auto *r = reinterpret_cast<Routine *>(n);
            if (!m.matches(r->name()))
                continue;
            total[0] = r->totalCount;
            std::copy(r->totalBySeverity + 1, r->totalBySeverity + 5, total + 1);
            if (number == 0) {
                now[0] += r->count;
                for (int s = 1; s <= 4; ++s)
                    now[s] += r->bySeverity[s];
            }
        }
        for (ZU_Node *n = g_state.errors.head; number != 0 && n->next; n = n->next) {
            auto *rec = reinterpret_cast<ZU_ErrRec *>(n);
            if (rec->number == number && m.matches(rec->routine)) {
                ++now[rec->severity];
                ++now[0];
            }
        }
    }
    ZU_unlock(&g_lock);
}

int ZU_errWorst(const char *pattern, int *count)
{
    int localCount = 0;
    count = count ? count : &localCount;
    *count = 0;
    if (!g_initialised.load(std::memory_order_acquire))
        return 0;
    Matcher m(pattern);
    int worst = 0;
    ZU_lock(&g_lock);
    if (m.all) {
        worst = g_state.worst;
        *count = g_state.now[0];
    } else {
        for (ZU_Node *n = g_state.routines.head; n->next; n = n->next) {
            auto *r = reinterpret_cast<Routine *>(n);
            if (m.matches(r->name())) {
                worst = std::max(worst, r->worst);
                *count += r->count;
            }
        }
    }
    ZU_unlock(&g_lock);
    return worst;
}

ZU_ErrRec *ZU_errNext(const char *pattern, int *index)
{
    if (!index)
        return nullptr;
    if (!g_initialised.load(std::memory_order_acquire)) {
        *index = 0;
        return nullptr;
    }
    Matcher m(pattern);
    ZU_lock(&g_lock);
    ZU_ErrRec *rec = nextLocked(m, index);
    ZU_unlock(&g_lock);
    return rec;
}

const char *ZU_errStr(const char *format, const ZU_ErrRec *rec)
{
    ZU_lock(&g_lock);
    expand(format, rec, g_state.text, sizeof g_state.text);
    ZU_unlock(&g_lock);
    return g_state.text;
}

char *ZU_errStrTS(const char *format, const ZU_ErrRec *rec, char *buffer, int size)
{
    if (size < 1)
        size = 1024;
    if (!buffer)
        buffer = static_cast<char *>(ZU_allocMem(static_cast<size_t>(size), "ZU_errStrTS:buf"));
    if (buffer)
        expand(format, rec, buffer, static_cast<size_t>(size));
    return buffer;
}

void ZU_errPrint(const char *pattern, const char *format, int direction, int *worst)
{
    int localWorst = 0;
    worst = worst ? worst : &localWorst;
    *worst = 0;
    if (!g_initialised.load(std::memory_order_acquire))
        return;
    Matcher m(pattern);
    char line[1024];
    ZU_lock(&g_lock);
    if (g_state.now[0] > 0) {
        int index = direction < 0 ? -1 : 1;
        while (ZU_ErrRec *rec = nextLocked(m, &index)) {
            if (format && *format) {
                expand(format, rec, line, sizeof line);
                printf("%s\n", line);
            }
            *worst = std::max(*worst, rec->severity);
            if (index == 0)
                break;
        }
        if (*worst < 4)
            clearLocked(m, 0);
    }
    ZU_unlock(&g_lock);
    if (*worst >= 4) {
        fflush(stdout);
        exit(1);
    }
}

} // extern "C"
