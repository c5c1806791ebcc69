// The crash tests' writer script, its model and the read-back of a file
// (see crash_model.h).
#include "crash_model.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "sdf_inner.h"

namespace crashtest {

namespace {

constexpr int kNames = 60;
constexpr int kNumeric[] = {SDF_INT_T, SDF_INT64_T, SDF_LOG_T, SDF_REAL_T, SDF_DBLE_T, SDF_CMPX_T, SDF_DCMPX_T};
const char* const kUnits[] = {"", "m", "kg", "N*m", "m/s^2", "degC"};

int typeSize(int base) {
    switch (base) {
        case SDF_INT_T: case SDF_LOG_T: case SDF_REAL_T: return 4;
        case SDF_INT64_T: case SDF_DBLE_T: case SDF_CMPX_T: return 8;
        case SDF_DCMPX_T: return 16;
        default: return 0;
    }
}

std::string nameOf(int i) {
    // Every third name is long, so the name slots fill blocks too.
    return i % 3 ? "v" + std::to_string(i) : "a_rather_long_variable_name_for_slots_" + std::to_string(i);
}

std::string letters(Rng& r, int64_t n) {
    std::string s;
    for (int64_t i = 0; i < n; i++) s += static_cast<char>('a' + r.below(26));
    return s;
}

std::vector<unsigned char> bytes(Rng& r, int64_t n) {
    std::vector<unsigned char> b(static_cast<size_t>(n));
    for (auto& c : b) c = static_cast<unsigned char>(r.next() >> 24);
    return b;
}

// Names of the variables of a state that pass a test.
template <class Pred>
std::vector<std::string> pick(const State& s, Pred p) {
    std::vector<std::string> out;
    for (const auto& [n, v] : s)
        if (p(v)) out.push_back(n);
    return out;
}

int64_t lastStride(const std::vector<int64_t>& dims) {
    int64_t s = 1;
    for (size_t k = 0; k + 1 < dims.size(); k++) s *= dims[k];
    return s;
}

// One step that fits the state: operations on variables pick existing ones.
Op makeOp(Rng& r, const State& s) {
    Op op;
    const auto arrays = pick(s, [](const Var& v) { return v.array; });
    const auto any = pick(s, [](const Var&) { return true; });
    const int64_t roll = r.below(100);
    op.name = nameOf(static_cast<int>(r.below(kNames)));
    op.units = kUnits[r.below(6)];
    op.desc = r.below(3) ? "" : letters(r, r.below(120));
    if (roll < 18) {
        op.kind = Kind::WriteVar;
        op.base = kNumeric[r.below(7)];
        op.data = bytes(r, typeSize(op.base));
    } else if (roll < 27) {
        op.kind = Kind::WriteChar;
        op.text = letters(r, r.below(200));
    } else if (roll < 40) {
        op.kind = Kind::Define;
        op.base = r.below(6) ? kNumeric[r.below(7)] : SDF_CHAR_T;
        op.elen = op.base == SDF_CHAR_T ? static_cast<int>(1 + r.below(12)) : typeSize(op.base);
        const int rank = static_cast<int>(1 + r.below(3));
        for (int k = 0; k < rank; k++) op.dims.push_back(k + 1 < rank ? 1 + r.below(6) : r.below(12));
    } else if (roll < 54 && !arrays.empty()) {
        op.kind = Kind::WriteArray;
        op.name = arrays[r.below(static_cast<int64_t>(arrays.size()))];
        const Var& v = s.at(op.name);
        if (v.count() == 0) return makeOp(r, s);
        op.first = r.below(v.count());
        op.count = 1 + r.below(v.count() - op.first);
        op.data = bytes(r, op.count * v.elen);
    } else if (roll < 66 && !arrays.empty()) {
        op.kind = Kind::Append;
        op.name = arrays[r.below(static_cast<int64_t>(arrays.size()))];
        const Var& v = s.at(op.name);
        op.first = v.count();
        op.count = 1 + r.below(2 * lastStride(v.dims));
        op.data = bytes(r, op.count * v.elen);
    } else if (roll < 76 && !any.empty()) {
        op.kind = Kind::Delete;
        op.name = any[r.below(static_cast<int64_t>(any.size()))];
    } else if (roll < 84 && !any.empty()) {
        op.kind = r.below(2) ? Kind::PutUnits : Kind::PutDesc;
        op.name = any[r.below(static_cast<int64_t>(any.size()))];
        op.text = op.kind == Kind::PutUnits ? kUnits[r.below(6)] : letters(r, r.below(150));
    } else if (roll < 95) {
        op.kind = Kind::Flush;
    } else {
        op.kind = Kind::Reopen;
    }
    return op;
}

}  // namespace

std::string Op::text_of() const {
    static const char* const names[] = {"write_var", "write_char", "define", "write_array", "append",
                                        "delete",    "put_units",  "put_desc", "flush",     "close and reopen"};
    std::string t = names[static_cast<int>(kind)];
    if (!name.empty() && kind != Kind::Flush && kind != Kind::Reopen) t += " \"" + name + "\"";
    if (kind == Kind::WriteArray || kind == Kind::Append)
        t += " elements " + std::to_string(first) + "+" + std::to_string(count);
    return t;
}

void apply(const Op& op, State& s) {
    switch (op.kind) {
        case Kind::WriteVar: {
            Var v;
            v.base = op.base;
            v.elen = typeSize(op.base);
            v.bytes = op.data;
            v.units = op.units;
            v.desc = op.desc;
            s[op.name] = v;
            break;
        }
        case Kind::WriteChar: {
            // A replaced variable keeps its units: the string form has none.
            auto it = s.find(op.name);
            Var v;
            v.base = SDF_CHAR_T;
            v.elen = static_cast<int>(op.text.size());
            v.text = op.text;
            v.desc = op.desc;
            if (it != s.end()) v.units = it->second.units;
            s[op.name] = v;
            break;
        }
        case Kind::Define: {
            Var v;
            v.base = op.base;
            v.array = true;
            v.elen = op.elen;
            v.dims = op.dims;
            v.units = op.units;
            v.desc = op.desc;
            v.bytes.assign(static_cast<size_t>(v.count() * v.elen), 0);
            v.known.assign(static_cast<size_t>(v.count()), false);
            s[op.name] = v;
            break;
        }
        case Kind::WriteArray:
        case Kind::Append: {
            Var& v = s.at(op.name);
            if (op.first + op.count > v.count()) {
                const int64_t stride = lastStride(v.dims);
                v.dims.back() = (op.first + op.count + stride - 1) / stride;
                v.bytes.resize(static_cast<size_t>(v.count() * v.elen), 0);
                v.known.resize(static_cast<size_t>(v.count()), false);
            }
            std::copy(op.data.begin(), op.data.end(), v.bytes.begin() + op.first * v.elen);
            std::fill(v.known.begin() + op.first, v.known.begin() + op.first + op.count, true);
            break;
        }
        case Kind::Delete: s.erase(op.name); break;
        case Kind::PutUnits: s.at(op.name).units = op.text; break;
        case Kind::PutDesc: s.at(op.name).desc = op.text; break;
        case Kind::Flush:
        case Kind::Reopen: break;
    }
}

Script makeScript(uint64_t seed, int ops) {
    Rng r(seed);
    Script sc;
    sc.states.emplace_back();
    for (int k = 0; k < ops; k++) {
        Op op;
        if (k + 1 == ops) op.kind = Kind::Flush;
        else op = makeOp(r, sc.states.back());
        State next = sc.states.back();
        crashtest::apply(op, next);
        sc.ops.push_back(std::move(op));
        sc.states.push_back(std::move(next));
    }
    return sc;
}

int perform(const Op& op, int* ch, const char* path) {
    const char* n = op.name.c_str();
    switch (op.kind) {
        case Kind::WriteVar: return Sdf_Write_Var(*ch, n, op.base, op.data.data(), op.units.c_str(), op.desc.c_str());
        case Kind::WriteChar: return Sdf_Write_Char(*ch, n, op.text.c_str(), op.desc.c_str());
        case Kind::Define: {
            int64_t d[8] = {static_cast<int64_t>(op.dims.size())};
            for (size_t k = 0; k < op.dims.size(); k++) d[k + 1] = op.dims[k];
            return Sdf_Define_Array64(*ch, n, op.base, op.elen, d, op.units.c_str(), op.desc.c_str());
        }
        case Kind::WriteArray: {
            // The linear offset as indices, first dimension fastest.
            int64_t dims[8] = {};
            if (int rc = Sdf_Get_Dims64(*ch, n, dims)) return rc;
            int64_t start[8] = {dims[0]};
            int64_t rest = op.first;
            for (int k = 1; k <= dims[0]; k++) {
                start[k] = k < dims[0] ? rest % dims[k] : rest;
                rest = k < dims[0] ? rest / dims[k] : 0;
            }
            return Sdf_Write_Array64(*ch, n, op.data.data(), start, op.count);
        }
        case Kind::Append: {
            int64_t start[8] = {0};
            return Sdf_Write_Array64(*ch, n, op.data.data(), start, op.count);
        }
        case Kind::Delete: return Sdf_Delete(*ch, n);
        case Kind::PutUnits: return Sdf_Put_Units(*ch, n, op.text.c_str());
        case Kind::PutDesc: return Sdf_Put_Desc(*ch, n, op.text.c_str());
        case Kind::Flush: return Sdf_Flush(*ch);
        case Kind::Reopen: {
            if (int rc = Sdf_Close(*ch, "KEEP")) return rc;
            *ch = -1;
            return Sdf_Open(ch, path, "BINARY", "OLD", "WRITE");
        }
    }
    return -1;
}

bool readState(int ch, State& out, std::string* why) {
    out.clear();
    char** list = nullptr;
    int count = 0;
    if (int rc = Sdf_List(ch, "*", &list, &count)) {
        *why = "list failed with " + std::to_string(rc);
        return false;
    }
    std::vector<std::string> names(list, list + count);
    Sdf_Free(list);
    for (const std::string& name : names) {
        const char* n = name.c_str();
        Var v;
        int isArray = 0;
        char *units = nullptr, *desc = nullptr;
        int rc = Sdf_Get_Type(ch, n, &v.base, &isArray);
        if (!rc) rc = Sdf_Get_Elen(ch, n, &v.elen);
        if (!rc) rc = Sdf_Get_Units(ch, n, &units);
        if (!rc) rc = Sdf_Get_Desc(ch, n, &desc);
        v.units = units ? units : "";
        v.desc = desc ? desc : "";
        Sdf_Free(units);
        Sdf_Free(desc);
        v.array = isArray != 0;
        if (!rc && v.array) {
            int64_t d[8] = {};
            rc = Sdf_Get_Dims64(ch, n, d);
            if (!rc) v.dims.assign(d + 1, d + 1 + std::clamp<int64_t>(d[0], 0, 7));
            // The buffer is sized from what the library itself says of the
            // array, and kept small: a wrong size is a mismatch, not a read.
            if (!rc && v.elen > 0 && v.count() >= 0 && v.count() * v.elen <= (int64_t{1} << 26)) {
                v.bytes.resize(static_cast<size_t>(v.count() * v.elen));
                v.known.assign(static_cast<size_t>(v.count()), true);
                void* p = v.bytes.data();
                int64_t start[8] = {}, got = 0;
                if (v.count() > 0) rc = Sdf_Read_Array64(ch, n, &p, start, v.count(), &got);
            }
        } else if (!rc && v.base == SDF_CHAR_T) {
            char* text = nullptr;
            int len = 0;
            rc = Sdf_Get_Cval(ch, n, &text, &len);
            v.text = text ? text : "";
            Sdf_Free(text);
        } else if (!rc) {
            unsigned char value[16] = {};
            rc = Sdf_Get_Val(ch, n, value);
            v.bytes.assign(value, value + std::clamp(v.elen, 0, 16));
        }
        if (rc) {
            *why = "\"" + name + "\" can't be read (" + std::to_string(rc) + ")";
            return false;
        }
        out[name] = std::move(v);
    }
    return true;
}

bool matches(const State& got, const State& want, const Relax* relax, std::string* why) {
    for (const auto& [name, w] : want)
        if (!got.count(name)) return *why = "\"" + name + "\" is missing", false;
    for (const auto& [name, g] : got) {
        auto it = want.find(name);
        if (it == want.end()) return *why = "\"" + name + "\" should not exist", false;
        const Var& w = it->second;
        const std::string at = "\"" + name + "\": ";
        if (g.base != w.base || g.array != w.array || g.elen != w.elen || g.dims != w.dims)
            return *why = at + "type, length or dimensions differ", false;
        if (g.units != w.units) return *why = at + "units \"" + g.units + "\", want \"" + w.units + "\"", false;
        if (g.desc != w.desc) return *why = at + "description differs", false;
        if (g.text != w.text) return *why = at + "string value differs", false;
        if (!w.array) {
            if (g.bytes != w.bytes) return *why = at + "value differs", false;
            continue;
        }
        const Var* old = nullptr;
        if (relax && relax->name == name && relax->before) {
            auto o = relax->before->find(name);
            if (o != relax->before->end()) old = &o->second;
        }
        for (int64_t e = 0; e < w.count(); e++) {
            const size_t b = static_cast<size_t>(e * w.elen), len = static_cast<size_t>(w.elen);
            const bool same = memcmp(&g.bytes[b], &w.bytes[b], len) == 0;
            if (!w.known[e] || same) continue;
            if (relax && relax->name == name && e >= relax->first && e < relax->first + relax->count) {
                if (!old || e >= old->count() || !old->known[e] || memcmp(&g.bytes[b], &old->bytes[b], len) == 0)
                    continue;
            }
            return *why = at + "element " + std::to_string(e) + " differs", false;
        }
    }
    return true;
}

// ------------------------------------------------------------ the writer

namespace {

int64_t g_killAt = 0;  // 0: never
int64_t g_calls = 0;

void beforeCall() {
    if (++g_calls == g_killAt) kill(getpid(), SIGKILL);
}
int cOpen(const char* p, int f, mode_t m) { return beforeCall(), sdf_io_default.open(p, f, m); }
int cClose(int fd) { return beforeCall(), sdf_io_default.close(fd); }
ssize_t cRead(int fd, void* b, size_t n, off_t o) { return beforeCall(), sdf_io_default.pread(fd, b, n, o); }
ssize_t cWrite(int fd, const void* b, size_t n, off_t o) { return beforeCall(), sdf_io_default.pwrite(fd, b, n, o); }
// A killed process loses nothing the kernel already holds, so the system's
// flush adds nothing to what is tested here but time: it is only counted.
int cSync(int) { return beforeCall(), 0; }
int cTruncate(int fd, off_t n) { return beforeCall(), sdf_io_default.ftruncate(fd, n); }
int cUnlink(const char* p) { return beforeCall(), sdf_io_default.unlink(p); }
int cStat(int fd, struct stat* st) { return beforeCall(), sdf_io_default.fstat(fd, st); }
// The lock step's waits cost time and prove nothing here: one writer only.
int noSleep(const struct timespec*, struct timespec*) { return 0; }

}  // namespace

std::string errorMessages() {
    std::string all;
    int index = -1;
    while (ZU_ErrRec* r = ZU_errNext("*", &index)) {
        all += std::string(all.empty() ? "" : " | ") + (r->message ? r->message : "");
        if (index == 0) break;
    }
    for (char& c : all)
        if (c == '\n') c = ' ';
    return all;
}

namespace {

void jot(int fd, const std::string& line) {
    const std::string l = line + "\n";
    if (write(fd, l.data(), l.size()) != static_cast<ssize_t>(l.size())) _exit(4);
}

[[noreturn]] void writer(const Script& sc, const std::string& file, const std::string& journal, const char* opts,
                         int64_t killAt) {
    alarm(60);
    const int j = open(journal.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
    if (j < 0) _exit(5);
    sdf_io = sdf_io_ops{cOpen, cClose, cRead, cWrite, cSync, cTruncate, cUnlink, sdf_io_default.time,
                        cStat, sdf_io_default.kill, sdf_io_default.clock_gettime, noSleep,
                        sdf_io_default.rename, sdf_io_default.link};
    g_killAt = killAt;
    g_calls = 0;
    Sdf_Push(-1);  // the built-in defaults, whatever tests before set
    Sdf_Set_Opts(opts);
    ZU_errClear("*", 0);
    int ch = -1;
    if (Sdf_Open(&ch, file.c_str(), "BINARY", "NEW", "WRITE")) jot(j, "E 0 " + errorMessages()), _exit(3);
    jot(j, "C");
    for (size_t k = 1; k <= sc.ops.size(); k++) {
        const Op& op = sc.ops[k - 1];
        jot(j, "S " + std::to_string(k));
        if (perform(op, &ch, file.c_str()) >= 3000)
            jot(j, "E " + std::to_string(k) + " " + op.text_of() + ": " + errorMessages()), _exit(3);
        if (op.kind == Kind::Flush || op.kind == Kind::Reopen) jot(j, "D " + std::to_string(k));
    }
    if (Sdf_Close(ch, "KEEP")) jot(j, "E close: " + errorMessages()), _exit(3);
    jot(j, "T " + std::to_string(g_calls));
    _exit(0);
}

}  // namespace

Journal readJournal(const std::string& path) {
    Journal j;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line == "C") j.created = true;
        else if (line.rfind("S ", 0) == 0) j.started = std::stoi(line.substr(2));
        else if (line.rfind("D ", 0) == 0) j.durable = std::stoi(line.substr(2));
        else if (line.rfind("T ", 0) == 0) j.calls = std::stoll(line.substr(2));
        else if (line.rfind("E ", 0) == 0) j.error = line.substr(2);
    }
    return j;
}

bool dirtyOnDisk(const std::vector<unsigned char>& b) {
    if (b.size() < 20) return false;
    const bool little = b[9] == 'L';
    uint32_t g = 0;
    for (int i = 0; i < 4; i++) g |= uint32_t{b[16 + (little ? i : 3 - i)]} << (8 * i);
    return g != 0 && g != SDF_GUARD_CLEAN && (g < 256 || (g & ~0xFFu) == SDF_GUARD_CLEAN);
}

Journal runWriter(const Script& sc, const std::string& file, const char* opts, int64_t killAt, int64_t delayUs) {
    for (const char* s : {"", ".lock", ".lock.lock", ".journal"}) unlink((file + s).c_str());
    pid_t pid = fork();
    if (pid == 0) writer(sc, file, file + ".journal", opts, killAt);
    if (delayUs >= 0) {
        struct timespec t{static_cast<time_t>(delayUs / 1000000), static_cast<long>(delayUs % 1000000) * 1000};
        nanosleep(&t, nullptr);
        kill(pid, SIGKILL);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return readJournal(file + ".journal");
}

}  // namespace crashtest
