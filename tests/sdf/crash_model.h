// The writer of the crash tests: a random script of SDF operations from a
// seed, the model of what each step leaves in the file, the run of the
// script through the library, and the read-back of a file into the same
// model, so that a file can be compared with the states the writer went
// through.
//
// The model knows what the library promises and no more: elements of an
// array that were never written (a new definition, the rest of a slab that
// an append opened) are unknown and match anything.
#pragma once

#include <stdint.h>
#include <string.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sdf.h"

namespace crashtest {

struct Var {
    int base = 0;
    bool array = false;
    int elen = 0;
    std::vector<int64_t> dims;        // arrays
    std::string units, desc, text;    // text: a string scalar
    std::vector<unsigned char> bytes; // scalar value, or array elements
    std::vector<bool> known;          // arrays: per element
    int64_t count() const {
        int64_t n = 1;
        for (int64_t d : dims) n *= d;
        return array ? n : 1;
    }
};
using State = std::map<std::string, Var>;

enum class Kind { WriteVar, WriteChar, Define, WriteArray, Append, Delete, PutUnits, PutDesc, Flush, Reopen };

struct Op {
    Kind kind{};
    std::string name;
    int base = 0, elen = 0;
    std::vector<int64_t> dims;
    std::string units, desc, text;
    int64_t first = 0, count = 0;  // array writes: element offset and count
    std::vector<unsigned char> data;
    // Whether the file holds the tables of the state after this step once
    // the step is done: a flush or close commits, an array write commits
    // before its data land.
    bool commits() const {
        return kind == Kind::Flush || kind == Kind::Reopen ||
               ((kind == Kind::WriteArray || kind == Kind::Append) && count > 0);
    }
    std::string text_of() const;
};

// A deterministic generator, the same in every build.
class Rng {
public:
    explicit Rng(uint64_t seed) : s_(seed * 0x9E3779B97F4A7C15ull + 1) {}
    uint64_t next() {
        s_ ^= s_ << 13;
        s_ ^= s_ >> 7;
        s_ ^= s_ << 17;
        return s_;
    }
    int64_t below(int64_t n) { return n > 0 ? static_cast<int64_t>(next() % static_cast<uint64_t>(n)) : 0; }

private:
    uint64_t s_;
};

// A script of `ops` steps that ends with a flush, and the states after each
// step: states[0] is the new empty file, states[k] the state after step k.
struct Script {
    std::vector<Op> ops;  // ops[k - 1] is step k
    std::vector<State> states;
};
Script makeScript(uint64_t seed, int ops);

// Applies one step to a state.
void apply(const Op& op, State& s);

// Runs step `op` on channel *ch (a reopen changes it); the library's code.
int perform(const Op& op, int* ch, const char* path);

// Reads every variable of an open channel into a state; false with why set
// when something can't be read.
bool readState(int ch, State& out, std::string* why);

// Whether a file's state equals `want`, where the elements of array
// `relaxed` in [first, first + count) may also hold their value in `before`
// (or anything when unknown there): an array write cut off half way.
// Otherwise why says what differs.
struct Relax {
    std::string name;
    int64_t first = 0, count = 0;
    const State* before = nullptr;
};
bool matches(const State& got, const State& want, const Relax* relax, std::string* why);

// ------------------------------------------------------------ the writer
//
// The writer runs the script in a child process on a new file and keeps a
// journal beside it (file + ".journal") with plain write(2) calls: "C" once
// the file exists, "S k" before step k, "D k" once step k (a flush or a
// close) has returned, "E ..." with the library's messages when a step
// failed, "T n" with its count of file calls at a clean end. It can be
// killed with SIGKILL before its killAt-th call of the table of file calls.

struct Journal {
    bool created = false;
    int started = 0;  // the step it was in (the last when it finished)
    int durable = 0;  // the last flush or close that returned
    int64_t calls = 0;
    std::string error;
};

// Runs the writer with the process options `opts` (over the built-in
// defaults) on `file`, removing what an earlier run left there first; killed
// before file call killAt (0: never) or after delayUs microseconds (when not
// negative). Returns its journal once it has ended.
Journal runWriter(const Script& sc, const std::string& file, const char* opts, int64_t killAt, int64_t delayUs);
Journal readJournal(const std::string& path);
// Whether the guard word of a file's bytes carries the dirty flag.
bool dirtyOnDisk(const std::vector<unsigned char>& bytes);
// Every message in the error set, on one line.
std::string errorMessages();

}  // namespace crashtest
