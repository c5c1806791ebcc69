// Variable names and the variable table: validity and repair of names, the
// sorted key under both case rules, the free list of records, persistence
// through close and open, the checks of records at open, the upgrade and
// downgrade of dimensions, and a table of 100,000 variables.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "sdf_inner.h"
#include "sdf_test_files.h"

namespace {

TEST(SdfNames, ValidityFollowsTheClassesOfEachPosition) {
    const std::string n512 = "a" + std::string(511, 'b');
    struct {
        std::string name;
        int valid;
    } cases[] = {
        {"a", 1},    {"_", 1},     {"a1", 1},       {"a$b", 1},      {"a:b", 1},      {"a@~_:9", 1},
        {"Z", 1},    {n512, 1},    {"1a", 0},       {"a$", 0},       {"a b", 0},      {"$a", 0},
        {"", 0},     {"$", 0},     {n512 + "c", 0}, {"a\xC3\xA9", 0}, {"\xFF", 0},     {"ab\x80" "c", 0},
        {"a-b", 0},  {"a.b", 0},   {":a", 0},       {"9", 0},
    };
    for (const auto& c : cases) EXPECT_EQ(Sdf_Valid_Name(c.name.c_str()), c.valid) << c.name;
    EXPECT_EQ(Sdf_Valid_Name(nullptr), 0);
}

TEST(SdfNames, FixNameReplacesOffendersAndCutsLongNames) {
    const std::string n513 = "a" + std::string(512, 'b');
    struct {
        std::string in, out;
        int was_valid;
    } cases[] = {
        {"abc", "abc", 1}, {"", "_", 0},     {"1a", "_a", 0},      {"a$", "a_", 0},
        {"a b", "a_b", 0}, {"$a$", "_a_", 0}, {"a$b", "a$b", 1},    {"\xFFz\x80", "_z_", 0},
        {"x", "x", 1},     {"9", "_", 0},    {n513, n513.substr(0, 512), 0},
    };
    for (const auto& c : cases) {
        char buf[SDF_MAX_NAME + 1];
        EXPECT_EQ(Sdf_Fix_Name(c.in.c_str(), buf), c.was_valid) << c.in;
        EXPECT_EQ(std::string(buf), c.out);
        EXPECT_EQ(Sdf_Valid_Name(buf), 1);
    }
}

TEST(SdfNames, CaseInsensitiveOrderFoldsToUpperCase) {
    sdfile cs{}, ci{};
    ci.case_insensitive = 1;
    EXPECT_EQ(sdf_name_cmp(&ci, "abc", "ABC"), 0);
    EXPECT_LT(sdf_name_cmp(&ci, "abc", "ABD"), 0);
    EXPECT_NE(sdf_name_cmp(&cs, "abc", "ABC"), 0);
    // "_" lies between the upper and lower case letters.
    EXPECT_GT(sdf_name_cmp(&ci, "_", "a"), 0);
    EXPECT_LT(sdf_name_cmp(&cs, "_", "a"), 0);
    EXPECT_LT(sdf_name_cmp(&ci, "ab", "abc"), 0);
}

class SdfVars : public sdftest::FileTest {
protected:
    void TearDown() override {
        if (f_) sdf_close_file(f_, 0);
        f_ = nullptr;
        FileTest::TearDown();
    }
    void create(int case_insensitive = 0) {
        ASSERT_EQ(sdf_create_file(file().c_str(), 2, case_insensitive, &f_), 0);
    }
    void reopen(int writable = 1) {
        ASSERT_EQ(sdf_close_file(f_, 1), 0);
        f_ = nullptr;
        ASSERT_EQ(sdf_load_file(file().c_str(), writable, &f_), 0);
    }
    std::string file() const { return path("v.sdf"); }
    sdfile* s() { return f_->file; }
    vars* v() { return f_->file->vars; }
    sdf_chain_desc& chain(int c) { return s()->hdr->chain[c - 1]; }

    ventry* insert(const std::string& name, int type = SDF_DBLE_T, double value = 0) {
        int pos = -1, err = -1;
        EXPECT_EQ(sdf_find_var(f_, name.c_str(), &pos), nullptr) << name;
        ventry* row = sdf_insert_var(f_, name.c_str(), pos, &err);
        EXPECT_NE(row, nullptr) << name;
        EXPECT_EQ(err, 0);
        if (!row) return nullptr;
        row->record->type = type;
        row->record->elen = sdf_type_elen(type);
        row->record->value.d[0] = value;
        sdf_touch(s(), row->record, row->block, 1);
        return row;
    }
    void remove(const std::string& name) {
        int pos = -1;
        ventry* row = sdf_find_var(f_, name.c_str(), &pos);
        ASSERT_NE(row, nullptr) << name;
        ASSERT_EQ(sdf_delete_var(f_, row, pos), 0);
    }
    std::vector<std::string> names() {
        std::vector<std::string> out;
        for (int p = 0; p < v()->count; p++) out.push_back(v()->rows[v()->key[p]].name);
        return out;
    }
    void expectSorted() {
        for (int p = 1; p < v()->count; p++)
            ASSERT_LT(sdf_name_cmp(s(), v()->rows[v()->key[p - 1]].name, v()->rows[v()->key[p]].name), 0)
                << "at " << p;
    }
    std::string names_at(int pos) { return v()->rows[v()->key[pos]].name; }
    int freeRecords() {
        int n = 0;
        for (int b = chain(SDF_CH_VARINF).free_a, i = chain(SDF_CH_VARINF).free_b; b && n < 1000000; n++) {
            auto* r = static_cast<sdf_varrec*>(s()->blks->rows[b].data) + i;
            b = r->name.block;
            i = r->name.index;
        }
        return n;
    }

    fcb* f_ = nullptr;
};

TEST_F(SdfVars, InsertFindDeleteRenameKeepTheKeySortedOnBothCaseRules) {
    for (int ci = 0; ci < 2; ci++) {
        SCOPED_TRACE(ci ? "case-insensitive" : "case-sensitive");
        create(ci);
        for (const char* n : {"b", "a", "C", "_x", "a1", "Bz", "c$d", "zeta", "A0"}) insert(n);
        expectSorted();
        EXPECT_EQ(v()->count, 9);
        int pos = -1;
        ventry* row = sdf_find_var(f_, ci ? "BZ" : "Bz", &pos);
        ASSERT_NE(row, nullptr);
        EXPECT_STREQ(row->name, "Bz");  // the spelling of its first writer
        EXPECT_EQ(sdf_find_var(f_, ci ? "bZ" : "bz", &pos) != nullptr, ci == 1);

        ASSERT_NE(sdf_find_var(f_, "b", &pos), nullptr);
        int oldpos = pos;
        ASSERT_EQ(sdf_find_var(f_, "zz", &pos), nullptr);
        ASSERT_EQ(sdf_rename_var(f_, "zz", oldpos, pos), 0);
        ASSERT_NE(sdf_find_var(f_, "a1", &oldpos), nullptr);
        ASSERT_EQ(sdf_find_var(f_, "_0", &pos), nullptr);
        ASSERT_EQ(sdf_rename_var(f_, "_0", oldpos, pos), 0);
        expectSorted();
        EXPECT_EQ(sdf_find_var(f_, "b", &pos), nullptr);
        EXPECT_NE(sdf_find_var(f_, "zz", &pos), nullptr);
        EXPECT_EQ(names()[pos], "zz");
        EXPECT_EQ(names().back(), ci ? "_x" : "zz");  // "_" folds after the letters
        EXPECT_NE(sdf_find_var(f_, "_0", &pos), nullptr);

        remove("C");
        remove("zz");
        remove("a");
        expectSorted();
        EXPECT_EQ(v()->count, 6);
        EXPECT_EQ(sdf_find_var(f_, "C", &pos), nullptr);
        for (const auto& n : names()) EXPECT_NE(sdf_find_var(f_, n.c_str(), &pos), nullptr) << n;

        // The table outlives a close and an open.
        auto before = names();
        reopen();
        EXPECT_EQ(names(), before);
        EXPECT_EQ(s()->case_insensitive, ci);
        ASSERT_EQ(sdf_close_file(f_, 0), 0);
        f_ = nullptr;
    }
}

TEST_F(SdfVars, DeletingTheLastVariableOfABlockReturnsItAndTheEmptyFileReopens) {
    create();
    insert("x", SDF_DBLE_T, 1.5);
    int blk = v()->rows[v()->key[0]].block;
    EXPECT_EQ(chain(SDF_CH_VARINF).free_count, 7);
    remove("x");
    EXPECT_EQ(v()->count, 0);
    EXPECT_EQ(chain(SDF_CH_VARINF).head, 0);
    EXPECT_EQ(chain(SDF_CH_VARINF).chunks, 0);
    EXPECT_EQ(chain(SDF_CH_VARINF).free_count, 0);
    EXPECT_EQ(chain(SDF_CH_VARINF).free_a, 0);
    EXPECT_EQ(chain(SDF_CH_VARNAM).chunks, 0);
    EXPECT_EQ(s()->blks->rows[blk].data, nullptr);
    reopen();
    EXPECT_EQ(v()->count, 0);
    insert("y");
    reopen(0);
    EXPECT_EQ(names(), std::vector<std::string>{"y"});
}

TEST_F(SdfVars, ADeleteFreesItsRowAndTheInsertAfterTakesTheLowestFreeRecord) {
    create();
    for (const char* n : {"a", "b", "c", "d"}) insert(n);
    int pos = -1;
    ventry* b = sdf_find_var(f_, "b", &pos);
    ASSERT_NE(b, nullptr);
    int b_row = static_cast<int>(b - v()->rows);
    sdf_varrec* b_rec = b->record;
    remove("b");
    EXPECT_EQ(freeRecords(), chain(SDF_CH_VARINF).free_count);
    ventry* e = insert("e");
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e - v()->rows, b_row);
    EXPECT_EQ(e->record, b_rec);

    // Two deletes in a row: the next insert still takes the lowest record.
    ventry* c = sdf_find_var(f_, "c", &pos);
    ASSERT_NE(c, nullptr);
    sdf_varrec* c_rec = c->record;
    remove("d");
    remove("c");
    ventry* f = insert("f");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->record, c_rec);
    EXPECT_EQ(freeRecords(), chain(SDF_CH_VARINF).free_count);
    reopen();
    EXPECT_EQ(freeRecords(), chain(SDF_CH_VARINF).free_count);
    ventry* g = insert("g");
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->record - static_cast<sdf_varrec*>(s()->blks->rows[g->block].data), 3);
}

TEST_F(SdfVars, RecordsNamesAndSlotsSurviveCloseAndOpen) {
    create();
    std::vector<std::string> all;
    for (int k = 0; k < 40; k++) {  // several varinf blocks
        std::string n = "var" + std::to_string(k * 7 % 40);
        ventry* row = insert(n, k % 2 ? SDF_DBLE_T : SDF_INT_T, k * 0.25);
        ASSERT_NE(row, nullptr);
        all.push_back(n);
        if (k % 5 == 0) {
            sdf_slotref u{0, 0};
            int err = 0;
            auto* p = static_cast<char*>(sdf_get_slot(f_, SDF_CH_CHRVAR, 5, &u, &err));
            ASSERT_NE(p, nullptr);
            strcpy(p, ("m/s" + std::to_string(k)).substr(0, 5).c_str());
            row->record->units = u;
        }
    }
    for (int k = 0; k < 40; k += 3) remove("var" + std::to_string(k));
    expectSorted();
    std::vector<std::pair<std::string, std::vector<unsigned char>>> before;
    for (int p = 0; p < v()->count; p++) {
        const ventry& r = v()->rows[v()->key[p]];
        auto* bytes = reinterpret_cast<const unsigned char*>(r.record);
        before.emplace_back(r.name, std::vector<unsigned char>(bytes, bytes + SDF_RECORD_BYTES));
    }
    reopen(0);
    ASSERT_EQ(v()->count, static_cast<int>(before.size()));
    for (int p = 0; p < v()->count; p++) {
        const ventry& r = v()->rows[v()->key[p]];
        EXPECT_EQ(r.name, before[p].first);
        auto* bytes = reinterpret_cast<const unsigned char*>(r.record);
        EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + SDF_RECORD_BYTES), before[p].second) << r.name;
        if (r.record->units.block) {
            int err = 0;
            auto* u = static_cast<const char*>(sdf_get_slot(f_, SDF_CH_CHRVAR, 0, &r.record->units, &err));
            ASSERT_NE(u, nullptr);
            EXPECT_EQ(std::string(u, 3), "m/s");
        }
    }
}

// Where record 0 of the file's only variable lies on disk.
size_t recordOffset(const std::string& file) {
    fcb* f = nullptr;
    EXPECT_EQ(sdf_load_file(file.c_str(), 0, &f), 0);
    if (!f) return 0;
    const ventry& row = f->file->vars->rows[0];
    auto* base = static_cast<sdf_varrec*>(f->file->blks->rows[row.block].data);
    size_t at = static_cast<size_t>(f->file->blks->rows[row.block].entry->start) * SDF_CHUNK +
                static_cast<size_t>(row.record - base) * SDF_RECORD_BYTES;
    sdf_close_file(f, 0);
    return at;
}

TEST_F(SdfVars, EachRecordCheckAtOpenRefusesACraftedFile) {
    create();
    insert("x");
    ASSERT_EQ(sdf_close_file(f_, 1), 0);
    f_ = nullptr;
    const auto good = sdftest::readBytes(file());
    const size_t rec = recordOffset(file());
    ASSERT_GT(rec, 0u);
    const int64_t hdr_time = static_cast<int64_t>(sdftest::getLE(good, 48)) |
                             (static_cast<int64_t>(sdftest::getLE(good, 52)) << 32);
    const int64_t late = hdr_time + SDF_STAMP_SLACK + 1;
    struct {
        size_t offset;
        int64_t value;
        bool wide;
        const char* text;
    } cases[] = {
        {24, 77, false, "is corrupt: illegal type 77 for variable 0."},
        {24, 222, false, "is corrupt: illegal type 222 for variable 0."},
        {24, -4, false, "is corrupt: illegal type -4 for variable 0."},
        {0, 1, false, "is corrupt: name block out of range at variable 0."},
        {0, 9999, false, "is corrupt: name block out of range at variable 0."},
        {48, SDF_MIN_STAMP - 1, true, "is corrupt:  timestamp out of range at variable 0."},
        {48, late, true, "is corrupt:  timestamp out of range at variable 0."},
        {4, 77, false, "is corrupt: bad name slot at variable 0."},
        {48, 0, true, nullptr},  // a time of 0 passes
        {48, SDF_MIN_STAMP, true, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.offset);
        auto bytes = good;
        sdftest::putLE(bytes, rec + c.offset, static_cast<uint32_t>(c.value));
        if (c.wide) sdftest::putLE(bytes, rec + c.offset + 4, static_cast<uint32_t>(c.value >> 32));
        sdftest::writeBytes(file(), bytes);
        ZU_errClear("*", 0);
        fcb* f = nullptr;
        int rc = sdf_load_file(file().c_str(), 0, &f);
        if (!c.text) {
            EXPECT_EQ(rc, 0);
            sdf_close_file(f, 0);
            continue;
        }
        EXPECT_EQ(rc, 3000);
        EXPECT_EQ(f, nullptr);
        EXPECT_EQ(sdftest::errorText(3051), "File \"" + file() + "\" " + c.text);
    }
}

TEST_F(SdfVars, ArbitraryBytesInTheTablesNeverCrashTheOpen) {
    create();
    for (int k = 0; k < 20; k++) insert(std::string("n").append(std::to_string(k)));
    ASSERT_EQ(sdf_close_file(f_, 1), 0);
    f_ = nullptr;
    const auto good = sdftest::readBytes(file());
    std::mt19937 rng(7);
    for (int round = 0; round < 200; round++) {
        auto bytes = good;
        for (int k = 0; k < 4; k++) {
            size_t at = 512 + rng() % (bytes.size() - 512);
            bytes[at] = static_cast<unsigned char>(rng());
        }
        sdftest::writeBytes(file(), bytes);
        fcb* f = nullptr;
        int rc = sdf_load_file(file().c_str(), 1, &f);
        if (rc < 3000 && f) {  // what opens must also work
            int pos = 0, err = 0;
            if (!sdf_find_var(f, "new", &pos)) sdf_insert_var(f, "new", pos, &err);
            while (f->file->vars->count > 0) {
                int p = f->file->vars->count - 1;
                if (sdf_delete_var(f, &f->file->vars->rows[f->file->vars->key[p]], p)) break;
            }
        }
        if (f) sdf_close_file(f, 0);
    }
    ZU_errClear("*", 0);
}

// Names arrive in shuffled windows of 1000 that ascend, and leave in
// shuffled windows that descend: every insert and delete lands at a random
// place near the end of the key, and records are freed in random order, while
// the cost of moving the key stays linear.
TEST_F(SdfVars, HundredThousandVariablesStaySorted) {
    create();
    constexpr int kCount = 100000, kWindow = 1000;
    char buf[16];
    std::vector<std::string> all;
    for (int k = 0; k < kCount; k++) {
        snprintf(buf, sizeof buf, "v%06d", k);
        all.push_back(buf);
    }
    std::mt19937 rng(1);
    for (int w = 0; w < kCount; w += kWindow) std::shuffle(all.begin() + w, all.begin() + w + kWindow, rng);
    for (const auto& n : all) {
        int pos = -1, err = 0;
        ASSERT_EQ(sdf_find_var(f_, n.c_str(), &pos), nullptr);
        ASSERT_NE(sdf_insert_var(f_, n.c_str(), pos, &err), nullptr);
    }
    EXPECT_EQ(v()->count, kCount);
    expectSorted();
    std::vector<std::string> random_order = all;
    std::shuffle(random_order.begin(), random_order.end(), rng);
    for (const auto& n : random_order) {
        int pos = -1;
        ventry* row = sdf_find_var(f_, n.c_str(), &pos);
        ASSERT_NE(row, nullptr);
        ASSERT_EQ(n, row->name);
        ASSERT_EQ(names_at(pos), n);
    }
    for (int w = kCount - kWindow; w >= 0; w -= kWindow) {
        std::shuffle(all.begin() + w, all.begin() + w + kWindow, rng);
        for (int k = w; k < w + kWindow; k++) {
            int pos = -1;
            ventry* row = sdf_find_var(f_, all[k].c_str(), &pos);
            ASSERT_NE(row, nullptr);
            ASSERT_EQ(sdf_delete_var(f_, row, pos), 0);
        }
        if (w == kCount / 2) {
            EXPECT_EQ(v()->count, kCount / 2);
            expectSorted();
            EXPECT_EQ(freeRecords(), chain(SDF_CH_VARINF).free_count);
        }
    }
    EXPECT_EQ(v()->count, 0);
    EXPECT_EQ(chain(SDF_CH_VARINF).chunks, 0);
    EXPECT_EQ(chain(SDF_CH_VARINF).free_count, 0);
    EXPECT_EQ(chain(SDF_CH_VARNAM).chunks, 0);
}

// An array "arr" of rank 2 whose dimensions are stored as version-1 words.
void makeVersion1(fcb* f) {
    int pos = 0, err = 0;
    sdf_find_var(f, "arr", &pos);
    ventry* row = sdf_insert_var(f, "arr", pos, &err);
    ASSERT_NE(row, nullptr);
    sdf_slotref ref{0, 0};
    auto* d = static_cast<int32_t*>(sdf_get_slot(f, SDF_CH_ARRDIM32, 3, &ref, &err));
    ASSERT_NE(d, nullptr);
    d[0] = 2;
    d[1] = 3;
    d[2] = 40000;
    row->record->type = SDF_REAL_T + 100;
    row->record->elen = 4;
    row->record->value.i[0] = ref.block;
    row->record->value.i[1] = ref.index;
    const int chunks = (3 * 40000 * 4 + SDF_CHUNK - 1) / SDF_CHUNK;  // a chain that holds them
    const int b = sdf_alloc_block(f->file, chunks, nullptr);
    ASSERT_GT(b, 0);
    f->file->blks->rows[b].entry->type = -4;
    f->file->blks->rows[b].entry->used = 1;
    row->record->value.i[2] = b;
    row->record->value.i[3] = chunks;
    sdf_touch(f->file, row->record, row->block, 1);
    f->file->hdr->major = 1;
}

std::vector<int64_t> dims64(fcb* f) {
    sdf_slotref ref{f->file->vars->rows[0].record->value.i[0], f->file->vars->rows[0].record->value.i[1]};
    int err = 0;
    auto* p = static_cast<const int32_t*>(sdf_get_slot(f, SDF_CH_ARRDIM, 0, &ref, &err));
    std::vector<int64_t> out;
    if (!p) return out;
    for (int k = 0; k < 3; k++)
        out.push_back(static_cast<int64_t>(static_cast<uint32_t>(p[2 * k])) |
                      (static_cast<int64_t>(p[2 * k + 1]) << 32));
    return out;
}

TEST_F(SdfVars, Version1DimensionsAreUpgradedOnReadAndDowngradedOnRequest) {
    create();
    makeVersion1(f_);
    ASSERT_EQ(sdf_close_file(f_, 1), 0);
    f_ = nullptr;
    const auto on_disk = sdftest::readBytes(file());
    ASSERT_EQ(sdftest::getLE(on_disk, 20), 1u);

    ASSERT_EQ(sdf_load_file(file().c_str(), 0, &f_), 0);
    EXPECT_EQ(s()->hdr->major, 3);
    EXPECT_EQ(dims64(f_), (std::vector<int64_t>{2, 3, 40000}));
    EXPECT_EQ(sdftest::errorText(1),
              "Updating SDF version to (3.0).\nIf saved to file, it will not open in older versions unless "
              "converted with sdf3to2.");
    ASSERT_EQ(sdf_close_file(f_, 1), 0);
    f_ = nullptr;
    EXPECT_EQ(sdftest::readBytes(file()), on_disk) << "a read leaves the file alone";

    // Downgrade and back: the extents come through both conversions.
    ASSERT_EQ(sdf_load_file(file().c_str(), 1, &f_), 0);
    ASSERT_EQ(sdf_downgrade_arrdim(f_), 0);
    EXPECT_EQ(s()->hdr->major, 1);
    reopen();
    EXPECT_EQ(dims64(f_), (std::vector<int64_t>{2, 3, 40000}));

    // An extent beyond 32 bits refuses the downgrade and changes nothing.
    sdf_slotref ref{v()->rows[0].record->value.i[0], v()->rows[0].record->value.i[1]};
    int err = 0;
    auto* p = static_cast<int32_t*>(sdf_get_slot(f_, SDF_CH_ARRDIM, 0, &ref, &err));
    ASSERT_NE(p, nullptr);
    p[5] = 1;  // high word of the second extent
    EXPECT_EQ(sdf_downgrade_arrdim(f_), 3024);
    EXPECT_EQ(sdftest::errorText(3024), "A dimension of array \"arr\" overflows 32-bit integer.");
    EXPECT_EQ(s()->hdr->major, 3);
    EXPECT_EQ(dims64(f_), (std::vector<int64_t>{2, 3, 40000 + (INT64_C(1) << 32)}));
}

TEST_F(SdfVars, AFileWithoutVariablesIsDowngradedInTheHeaderAlone) {
    create();
    ASSERT_EQ(sdf_downgrade_arrdim(f_), 0);
    EXPECT_EQ(s()->hdr->major, 1);
    ASSERT_EQ(sdf_close_file(f_, 1), 0);
    f_ = nullptr;
    EXPECT_EQ(sdftest::getLE(sdftest::readBytes(file()), 20), 1u);
    ASSERT_EQ(sdf_load_file(file().c_str(), 0, &f_), 0);
    EXPECT_EQ(s()->hdr->major, 3);
    EXPECT_NE(sdftest::errorText(1), "<none>");
}

}  // namespace
