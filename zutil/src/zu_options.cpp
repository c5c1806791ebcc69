/*
 * zu_options.cpp - the utility library's option set and its stack.
 *
 * Three kinds of set exist: the read-only defaults, one working set that is
 * filled from the defaults when something is first changed, and the sets
 * pushed by ZU_push. `g_current` names the one in force. The flag
 * `g_threadSafe` is apart from the sets: once on it stays on, whatever the
 * option text later says.
 *
 * The option lock is a leaf: nothing that may report an error, allocate or
 * start the library runs while it is held. Errors found under it are raised
 * after it is released.
 */
#include "zu_internal.h"

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Allowed {
    const char *text;
    int number;
};

struct OptionDef {
    const char *name;
    Allowed values[5]; /* ended by an empty text; "*" accepts any text */
    int defaultValue;  /* index into values */
};

constexpr OptionDef kOptions[ZU_OPT_COUNT + 1] = {
    {"Error_Out", {{"None", 0}, {"ErrSet", 1}, {"StdErr", 2}, {"ErrSet&StdErr", 3}, {"", 0}}, 1},
    {"Mem_Error", {{"Exit", 0}, {"NULL", 1}, {"NULL_NoMessage", 3}, {"", 0}, {"", 0}}, 0},
    {"Thread_Safe", {{"No", 0}, {"Yes", 1}, {"", 0}, {"", 0}, {"", 0}}, 0},
    {"", {{"", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}}, 0},
};

constexpr size_t kTextMax = 127;

struct OptionValue {
    char text[kTextMax + 1];
    int number;
};

struct OptionSet {
    OptionValue values[ZU_OPT_COUNT];
};

struct StackNode {
    ZU_Node node;
    OptionSet *saved;
};

/* Built at compile time, so the defaults hold before any static set-up. */
constexpr OptionSet makeDefaults()
{
    OptionSet set{};
    for (int i = 0; i < ZU_OPT_COUNT; ++i) {
        const Allowed &a = kOptions[i].values[kOptions[i].defaultValue];
        for (size_t c = 0; c < kTextMax && a.text[c]; ++c)
            set.values[i].text[c] = a.text[c];
        set.values[i].number = a.number;
    }
    return set;
}

constexpr OptionSet kDefaults = makeDefaults();
OptionSet g_working;
const OptionSet *g_current = &kDefaults;
ZU_List g_stackList; /* pushed sets; zero until first used */
std::atomic<int> g_threadSafe{0};
ZU_LockRec g_lock;

/* A failure found under the lock, raised once the lock is released, with
 * the Error_Out that was in force when it was found. */
struct Failure {
    int code;
    std::string message;
    int errorOut;
};

std::string fill(int code, const char *first, const char *second = "")
{
    std::string out;
    const char *args[2] = {first, second};
    int used = 0;
    for (const char *p = ZU_optErrText(code); *p; ++p) {
        if (p[0] == '%' && p[1] == 's' && used < 2) {
            out += args[used++];
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}

/* Under the lock. */
ZU_List *stack()
{
    if (!g_stackList.head)
        ZU_listInit(&g_stackList);
    return &g_stackList;
}

int findOption(const char *name)
{
    for (int i = 0; kOptions[i].name[0]; ++i)
        if (ZU_strCaseCmp(kOptions[i].name, name) == 0)
            return i;
    return -1;
}

/* Copies `text` to at most 127 characters without trailing blanks. */
void storeAnyText(OptionValue &v, const char *text)
{
    strncpy(v.text, text, kTextMax);
    v.text[kTextMax] = '\0';
    size_t n = strlen(v.text);
    while (n > 0 && v.text[n - 1] == ' ')
        v.text[--n] = '\0';
    v.number = static_cast<int>(n);
}

int errorOut(const OptionSet *set)
{
    return set->values[ZU_OPT_ERROR_OUT].number;
}

/* Under the lock: applies one item to the working set; 0 or a code. */
int applyItem(OptionSet *set, const ZU_Item &item, std::vector<Failure> &failures,
              bool &turnOnThreads)
{
    int index = findOption(item.name);
    if (index < 0) {
        failures.push_back({ZU_OPT_UNKNOWN, fill(ZU_OPT_UNKNOWN, item.name), errorOut(set)});
        return ZU_OPT_UNKNOWN;
    }
    const OptionDef &def = kOptions[index];
    OptionValue &v = set->values[index];
    if (!item.text[0]) {
        if (strcmp(def.values[0].text, "*") == 0) {
            v.text[0] = '\0';
            v.number = 0;
            return 0;
        }
        failures.push_back({ZU_OPT_NO_VALUE, fill(ZU_OPT_NO_VALUE, def.name), errorOut(set)});
        return ZU_OPT_NO_VALUE;
    }
    for (const Allowed &a : def.values) {
        if (!a.text[0])
            break;
        if (strcmp(a.text, "*") == 0) {
            storeAnyText(v, item.text);
            return 0;
        }
        if (ZU_strCaseCmp(a.text, item.text) == 0) {
            strncpy(v.text, a.text, kTextMax);
            v.number = a.number;
            if (index == ZU_OPT_THREAD_SAFE && a.number == 1 && !g_threadSafe.load())
                turnOnThreads = true;
            return 0;
        }
    }
    failures.push_back({ZU_OPT_INVALID, fill(ZU_OPT_INVALID, item.text, def.name), errorOut(set)});
    return ZU_OPT_INVALID;
}

/* Every item of `text`, however many there are. */
int parseAll(const char *text, ZU_Item **items)
{
    int n = ZU_parseItems(text, items, ZU_OPT_COUNT, 0);
    if (n > ZU_OPT_COUNT) {
        ZU_freeMem(*items);
        *items = nullptr;
        n = ZU_parseItems(text, items, n, 0);
    }
    return n;
}

} // namespace

void zu_optReset(void)
{
    for (;;) {
        ZU_lock(&g_lock);
        bool empty = ZU_listIsEmpty(stack());
        ZU_unlock(&g_lock);
        if (empty)
            break;
        ZU_pop();
    }
    ZU_lock(&g_lock);
    g_current = &kDefaults;
    ZU_unlock(&g_lock);
}

extern "C" {

int ZU_setOpts(const char *text)
{
    ZU_Item *items = nullptr;
    int count = text ? parseAll(text, &items) : 0;
    std::vector<Failure> failures;
    bool turnOnThreads = false;
    int result = 0;
    bool locked = ZU_isThreadSafe() != 0;
    if (locked)
        ZU_lockAlways(&g_lock);
    if (g_current == &kDefaults) {
        g_working = kDefaults;
        g_current = &g_working;
    }
    auto *set = const_cast<OptionSet *>(g_current);
    for (int i = 0; i < count && items; ++i) {
        const ZU_Item &item = items[i];
        if (item.type == ZU_ITEM_EMPTY && !item.name[0] && !item.bracket[0])
            continue; /* nothing between two commas */
        int code = applyItem(set, item, failures, turnOnThreads);
        if (code)
            result = code;
    }
    if (turnOnThreads)
        g_threadSafe.store(1);
    if (locked)
        ZU_unlockAlways(&g_lock);
    ZU_freeMem(items);
    for (const Failure &f : failures)
        zu_errRaise("ZU_setOpts", f.code, ZU_SEV_ERROR, f.message.c_str(), f.errorOut);
    if (turnOnThreads)
        ZU_init(1);
    return result;
}

int ZU_getOpt(const char *name, char *value)
{
    int index = name ? findOption(name) : -1;
    if (index < 0) {
        ZU_Err("ZU_getOpt", ZU_OPT_UNKNOWN, ZU_SEV_ERROR,
               fill(ZU_OPT_UNKNOWN, name ? name : "").c_str());
        return ZU_OPT_UNKNOWN;
    }
    if (!value)
        return 0;
    if (index == ZU_OPT_THREAD_SAFE) {
        strcpy(value, ZU_isThreadSafe() ? "Yes" : "No");
        return 0;
    }
    ZU_lock(&g_lock);
    strcpy(value, g_current->values[index].text);
    ZU_unlock(&g_lock);
    return 0;
}

int ZU_optValue(int index)
{
    if (index < 0 || index >= ZU_OPT_COUNT)
        return -1;
    ZU_lock(&g_lock);
    int number = g_current->values[index].number;
    ZU_unlock(&g_lock);
    return number;
}

int ZU_push(int copy)
{
    auto *node = static_cast<StackNode *>(ZU_allocMem(sizeof(StackNode), "ZU_push:optenv"));
    auto *set = static_cast<OptionSet *>(ZU_allocMem(sizeof(OptionSet), "ZU_push:newopts"));
    if (!node || !set) {
        ZU_freeMem(node);
        ZU_freeMem(set);
        return 1;
    }
    ZU_lock(&g_lock);
    *set = copy ? *g_current : kDefaults;
    node->saved = const_cast<OptionSet *>(g_current);
    ZU_listAddTail(stack(), &node->node);
    g_current = set;
    ZU_unlock(&g_lock);
    return 0;
}

void ZU_pop(void)
{
    ZU_lock(&g_lock);
    auto *node = reinterpret_cast<StackNode *>(ZU_listRemTail(stack()));
    OptionSet *dropped = nullptr;
    if (node) {
        dropped = const_cast<OptionSet *>(g_current);
        g_current = node->saved;
    }
    ZU_unlock(&g_lock);
    if (node) {
        ZU_freeMem(dropped);
        ZU_freeMem(node);
    }
}

int ZU_isThreadSafe(void)
{
    return g_threadSafe.load(std::memory_order_acquire);
}

} // extern "C"
