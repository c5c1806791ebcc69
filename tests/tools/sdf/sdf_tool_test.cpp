// The sdf tool as a user runs it: each test writes SDF files with the
// library, runs the built program on them and reads its output, exit code
// and standard error. Export output is parsed back with small readers here.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "sdf.h"
#include "tool_run.h"

namespace {

using sdftooltest::Outcome;

std::string slurp(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// A tiny JSON reader: enough to take the tool's export apart.
struct Json {
    enum { Null, Bool, Num, Str, Arr, Obj } t = Null;
    double n = 0;
    std::string s;
    std::vector<Json> a;
    std::map<std::string, Json> o;
    const Json& operator[](const std::string& k) const { return o.at(k); }
    const Json& operator[](size_t i) const { return a.at(i); }
};

struct JsonReader {
    const std::string& s;
    size_t i = 0;
    void ws() { while (i < s.size() && isspace(static_cast<unsigned char>(s[i]))) i++; }
    bool eat(char c) { ws(); if (i < s.size() && s[i] == c) { i++; return true; } return false; }
    std::string str() {
        std::string r;
        if (!eat('"')) throw std::runtime_error("string expected at " + std::to_string(i));
        while (i < s.size() && s[i] != '"') {
            if (static_cast<unsigned char>(s[i]) < 0x20) throw std::runtime_error("raw control character");
            if (s[i] != '\\') { r += s[i++]; continue; }
            char e = s[++i];
            i++;
            if (e == 'u') {
                unsigned cp = std::stoul(s.substr(i, 4), nullptr, 16);
                i += 4;
                if (cp < 0x80) r += static_cast<char>(cp);
                else { r += static_cast<char>(0xc0 | cp >> 6); r += static_cast<char>(0x80 | (cp & 0x3f)); }
            } else {
                r += e == 'n' ? '\n' : e == 'r' ? '\r' : e == 't' ? '\t' : e == 'b' ? '\b' : e == 'f' ? '\f' : e;
            }
        }
        if (i++ >= s.size()) throw std::runtime_error("unterminated string");
        return r;
    }
    Json value() {
        Json v;
        ws();
        if (s.compare(i, 4, "null") == 0) { i += 4; return v; }
        if (s.compare(i, 4, "true") == 0) { i += 4; v.t = Json::Bool; v.n = 1; return v; }
        if (s.compare(i, 5, "false") == 0) { i += 5; v.t = Json::Bool; return v; }
        if (s[i] == '"') { v.t = Json::Str; v.s = str(); return v; }
        if (eat('[')) {
            v.t = Json::Arr;
            if (eat(']')) return v;
            do v.a.push_back(value()); while (eat(','));
            if (!eat(']')) throw std::runtime_error("] expected");
            return v;
        }
        if (eat('{')) {
            v.t = Json::Obj;
            if (eat('}')) return v;
            do { std::string k = str(); if (!eat(':')) throw std::runtime_error(": expected"); v.o[k] = value(); } while (eat(','));
            if (!eat('}')) throw std::runtime_error("} expected");
            return v;
        }
        size_t used = 0;
        v.t = Json::Num;
        v.n = std::stod(s.substr(i), &used);
        i += used;
        return v;
    }
};

Json parseJson(const std::string& text) {
    JsonReader r{text};
    Json v = r.value();
    r.ws();
    if (r.i != text.size()) throw std::runtime_error("trailing text");
    return v;
}

// Rows of a CSV text, quoted fields with doubled quotes and line breaks.
std::vector<std::vector<std::string>> parseCsv(const std::string& t) {
    std::vector<std::vector<std::string>> rows(1, std::vector<std::string>(1));
    bool quoted = false;
    for (size_t i = 0; i < t.size(); i++) {
        char c = t[i];
        if (quoted) {
            if (c == '"' && i + 1 < t.size() && t[i + 1] == '"') { rows.back().back() += '"'; i++; }
            else if (c == '"') quoted = false;
            else rows.back().back() += c;
        } else if (c == '"') quoted = true;
        else if (c == ',') rows.back().emplace_back();
        else if (c == '\n') rows.emplace_back(1);
        else rows.back().back() += c;
    }
    if (rows.back().size() == 1 && rows.back()[0].empty()) rows.pop_back();
    return rows;
}

const char* kTricky = "a,b \"q\"\nline2";

class SdfTool : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/sdf_tool_test_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        file_ = dir_ + "/sample.sdf";
        writeSample(file_);
    }
    void TearDown() override {
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }

    Outcome tool(const std::string& args) {
        const std::string errPath = dir_ + "/stderr.txt";
        Outcome r = sdftooltest::runTool(args, "2>" + errPath);
        r.err = slurp(errPath);
        return r;
    }

    static void writeSample(const std::string& path) {
        int ch = -1;
        ASSERT_EQ(Sdf_Open(&ch, path.c_str(), "BINARY", "NEW", "WRITE"), 0);
        double tip = 0.1;
        int count = 21, ok = 1;
        float z[2] = {1.5f, -2.0f};
        int64_t big = int64_t(1) << 40;
        ASSERT_EQ(Sdf_Write_Var(ch, "tip", SDF_DBLE_T, &tip, "m", "Tip, \"max\" deflection"), 0);
        ASSERT_EQ(Sdf_Write_Var(ch, "count", SDF_INT_T, &count, "", ""), 0);
        ASSERT_EQ(Sdf_Write_Var(ch, "ok", SDF_LOG_T, &ok, "", ""), 0);
        ASSERT_EQ(Sdf_Write_Var(ch, "z", SDF_CMPX_T, z, "", ""), 0);
        ASSERT_EQ(Sdf_Write_Var(ch, "big", SDF_INT64_T, &big, "", ""), 0);
        ASSERT_EQ(Sdf_Write_Char(ch, "note", kTricky, ""), 0);
        // Starts with their rank set: a start of rank 0 would append.
        int32_t d1[8] = {1, 4}, d2[8] = {2, 3, 2}, dc[8] = {1, 2}, start[8] = {1, 0};
        double defl[4] = {0, 1e-5, 2.5, -3}, table[6] = {1, 2, 3, 4, 5, 6};
        ASSERT_EQ(Sdf_Define_Array(ch, "defl", SDF_DBLE_T, 0, d1, "m", ""), 0);
        ASSERT_EQ(Sdf_Write_Array(ch, "defl", defl, start, 4), 0);
        ASSERT_EQ(Sdf_Define_Array(ch, "table", SDF_DBLE_T, 0, d2, "kg,m", "rows x cols"), 0);
        int32_t start2[8] = {2, 0, 0};
        ASSERT_EQ(Sdf_Write_Array(ch, "table", table, start2, 6), 0);
        char s0[] = "x", s1[] = "y,\"z\"";
        char* labels[2] = {s0, s1};
        ASSERT_EQ(Sdf_Define_Array(ch, "labels", SDF_CHAR_T, 8, dc, "", ""), 0);
        start[1] = 0;
        ASSERT_EQ(Sdf_Write_Carray(ch, "labels", labels, start, 2), 0);
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }

    std::string dir_, file_;
};

TEST_F(SdfTool, UsageAndExitCodes) {
    Outcome help = tool("--help");
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.out.find("Exit codes"), std::string::npos);
    EXPECT_EQ(tool("export --help").code, 0);
    EXPECT_EQ(tool("frobnicate " + file_).code, 2);
    EXPECT_EQ(tool("dump").code, 2);
    EXPECT_EQ(tool("ls --bogus " + file_).code, 2);
    EXPECT_EQ(tool("ls " + dir_ + "/missing.sdf").code, 1);
}

TEST_F(SdfTool, InfoAndListShowWhatTheFileHolds) {
    Outcome info = tool("info " + file_);
    ASSERT_EQ(info.code, 0) << info.err;
    EXPECT_NE(info.out.find("SDF 3.0"), std::string::npos);
    EXPECT_NE(info.out.find("9 (5 scalars, 1 string, 3 arrays)"), std::string::npos) << info.out;

    Outcome ls = tool("ls " + file_ + " 't*'");
    ASSERT_EQ(ls.code, 0) << ls.err;
    EXPECT_NE(ls.out.find("table"), std::string::npos);
    EXPECT_NE(ls.out.find("3x2"), std::string::npos);
    EXPECT_NE(ls.out.find("kg,m"), std::string::npos);
    EXPECT_EQ(ls.out.find("count"), std::string::npos) << "template not applied";
}

TEST_F(SdfTool, DumpPrintsExactValuesAndTablesByRow) {
    Outcome r = tool("dump " + file_ + " tip defl table z ok big");
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* want : {"\n  0.1\n", "[0] 0 1e-05 2.5 -3", "[0,*] 1 4", "[2,*] 3 6", "(1.5, -2)",
                             "\n  true\n", "1099511627776"})
        EXPECT_NE(r.out.find(want), std::string::npos) << want << " in\n" << r.out;

    Outcome missing = tool("dump " + file_ + " nothere");
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("nothere"), std::string::npos);
}

TEST_F(SdfTool, JsonExportParsesBack) {
    Outcome r = tool("export " + file_);
    ASSERT_EQ(r.code, 0) << r.err;
    Json doc = parseJson(r.out);
    std::map<std::string, Json> vars;
    for (const Json& v : doc["variables"].a) vars[v["name"].s] = v;
    ASSERT_EQ(vars.size(), 9u);
    EXPECT_EQ(vars["tip"]["value"].n, 0.1);
    EXPECT_EQ(vars["tip"]["description"].s, "Tip, \"max\" deflection");
    EXPECT_EQ(vars["note"]["value"].s, kTricky);
    EXPECT_EQ(vars["labels"]["value"][1].s, "y,\"z\"");
    EXPECT_EQ(vars["table"]["dims"][0].n, 3);
    EXPECT_EQ(vars["table"]["value"][2][1].n, 6) << "first dimension outermost";
    EXPECT_EQ(vars["z"]["value"][1].n, -2);
    EXPECT_EQ(vars["ok"]["value"].t, Json::Bool);
}

TEST_F(SdfTool, CsvExportParsesBack) {
    std::string out = dir_ + "/out.csv";
    Outcome r = tool("export --csv -o " + out + " " + file_ + " note labels table");
    ASSERT_EQ(r.code, 0) << r.err;
    auto rows = parseCsv(slurp(out));
    ASSERT_EQ(rows.size(), 1u + 1 + 2 + 6);
    for (const auto& row : rows) ASSERT_EQ(row.size(), 5u);
    EXPECT_EQ(rows[0][0], "name");
    EXPECT_EQ(rows[1][4], kTricky);
    EXPECT_EQ(rows[3][4], "y,\"z\"");
    EXPECT_EQ(rows[3][3], "1");
    EXPECT_EQ(rows[4][2], "kg,m");
    EXPECT_EQ(rows[9][3], "2;1");
    EXPECT_EQ(rows[9][4], "6");
}

TEST_F(SdfTool, ExportNeverOverwritesTheFileItReads) {
    std::string before = slurp(file_);
    EXPECT_EQ(tool("export --csv -o " + file_ + " " + file_).code, 2);
    EXPECT_EQ(slurp(file_), before);
}

TEST_F(SdfTool, CorruptFileIsRefusedCleanly) {
    Outcome good = tool("check " + file_);
    EXPECT_EQ(good.code, 0) << good.err;
    EXPECT_NE(good.out.find("ok, 9 variables"), std::string::npos);

    // Set the dirty flag of the guard word: the file looks caught mid-commit.
    std::string bytes = slurp(file_);
    bytes[16] = 1;
    std::string bad = dir_ + "/dirty.sdf";
    std::ofstream(bad, std::ios::binary) << bytes;
    Outcome check = tool("check " + file_ + " " + bad);
    EXPECT_EQ(check.code, 1);
    EXPECT_NE(check.err.find("is marked dirty"), std::string::npos) << check.err;
    for (const char* cmd : {"info", "ls", "dump", "export"}) {
        Outcome r = tool(std::string(cmd) + " " + bad);
        EXPECT_EQ(r.code, 1) << cmd;
        EXPECT_EQ(r.out, "") << cmd;
    }

    std::ofstream(dir_ + "/text.sdf") << "%SDF_BI but not really";
    Outcome notSdf = tool("check " + dir_ + "/text.sdf");
    EXPECT_EQ(notSdf.code, 1);
    EXPECT_NE(notSdf.err.find("is not an SDF"), std::string::npos) << notSdf.err;
}

TEST_F(SdfTool, LocksShowsHolderAndDeletesOnlyWhenAllowed) {
    Outcome none = tool("locks " + file_);
    EXPECT_EQ(none.code, 0);
    EXPECT_NE(none.out.find("not locked"), std::string::npos);

    int ch = -1;
    ASSERT_EQ(Sdf_Open(&ch, file_.c_str(), "BINARY", "OLD", "WRITE"), 0);
    Outcome held = tool("locks " + file_);
    EXPECT_NE(held.out.find("held by a writer: Created"), std::string::npos) << held.out;
    // Reading a held file works and leaves the lock as it was.
    EXPECT_EQ(tool("dump " + file_ + " tip").code, 0);
    EXPECT_EQ(tool("locks --delete " + file_).code, 1);
    EXPECT_TRUE(std::filesystem::exists(file_ + ".lock"));
    EXPECT_EQ(tool("locks --delete --force " + file_).code, 0);
    EXPECT_FALSE(std::filesystem::exists(file_ + ".lock"));
    Sdf_Close(ch, "KEEP");
    EXPECT_EQ(tool("locks --force " + file_).code, 2);
}

TEST_F(SdfTool, ReadingLeavesNoLockFileBehind) {
    EXPECT_EQ(tool("dump " + file_).code, 0);
    EXPECT_FALSE(std::filesystem::exists(file_ + ".lock"));
}

}  // namespace
