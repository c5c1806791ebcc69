// Arrays through the public forms: every type and rank written, grown and
// read back after a reopen in both byte orders; growth at the end, behind
// it and through chains of many blocks; what reused blocks hold; the counts
// and starts of reads; character arrays as strings and fields; bad
// arguments; and the 64-bit forms past 2^31 elements.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "sdf_array_helpers.h"

namespace {

using sdftest::Bytes;
using sdftest::dimsOf;
using sdftest::reported;
using sdftest::rowOf;
using sdftest::testElen;
using sdftest::values;

class SdfArrays : public sdftest::ChannelTest {};

const int32_t kExtents[7] = {3, 2, 2, 1, 2, 1, 2};

std::string varName(int type, int rank) { return "t" + std::to_string(type) + "_r" + std::to_string(rank); }

int64_t elements(const int32_t* dims) {
    int64_t n = 1;
    for (int i = 1; i <= dims[0]; i++) n *= dims[i];
    return n;
}

int chainBlocks(int ch, const std::string& name) {
    sdfile* s = sdf_chan_get(ch)->file;
    int n = 0;
    for (int b = rowOf(ch, name)->record->value.i[2]; b != 0 && n < 1000; b = s->blks->rows[b].entry->next) n++;
    return n;
}

TEST_F(SdfArrays, EveryTypeAndRankRoundTripsInBothByteOrders) {
    struct Order {
        const char* sex;
        int info;
    };
    for (Order order : {Order{"BigEndian", 1}, Order{"LittleEndian", 2}}) {
        SCOPED_TRACE(order.sex);
        const std::string p = path((std::string(order.sex) + ".sdf").c_str());
        int ch = sdftest::openNew(p, order.sex);
        for (int type : sdftest::kAllTypes) {
            for (int rank = 1; rank <= 7; rank++) {
                int32_t dims[8] = {rank};
                for (int i = 1; i <= rank; i++) dims[i] = kExtents[i - 1];
                const std::string name = varName(type, rank);
                ASSERT_EQ(Sdf_Define_Array(ch, name.c_str(), type, 3, dims, "m", "a test array"), 0) << name;
                const int64_t n = elements(dims);
                Bytes first = values(type, n, rank);
                int32_t start[8] = {rank};
                ASSERT_EQ(Sdf_Write_Array(ch, name.c_str(), first.data(), start, static_cast<int32_t>(n)), 0);
                // An append along the last dimension: one more layer.
                const int64_t layer = n / dims[rank];
                Bytes more = values(type, layer, 50 + rank);
                ASSERT_EQ(Sdf_Write_Array(ch, name.c_str(), more.data(), nullptr, static_cast<int32_t>(layer)), 0);
            }
        }
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

        ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0);
        int32_t info[7] = {};
        ASSERT_EQ(Sdf_Fileinf(ch, info), 0);
        EXPECT_EQ(info[3], order.info);
        for (int type : sdftest::kAllTypes) {
            for (int rank = 1; rank <= 7; rank++) {
                const std::string name = varName(type, rank);
                SCOPED_TRACE(name);
                std::vector<int64_t> want = {rank};
                for (int i = 1; i <= rank; i++) want.push_back(kExtents[i - 1] + (i == rank ? 1 : 0));
                ASSERT_EQ(dimsOf(ch, name), want);
                int32_t dims[8] = {rank};
                for (int i = 1; i <= rank; i++) dims[i] = kExtents[i - 1];
                Bytes expect = values(type, elements(dims), rank);
                Bytes more = values(type, elements(dims) / dims[rank], 50 + rank);
                expect.insert(expect.end(), more.begin(), more.end());
                int rc = -1;
                ASSERT_EQ(sdftest::readAll(ch, name, &rc), expect);
                EXPECT_EQ(rc, 0);
                EXPECT_EQ(rowOf(ch, name)->record->elen, testElen(type));

                // Every other element along the first dimension, the last
                // dimension backwards, checked against the full array.
                std::vector<int64_t> b(static_cast<size_t>(rank), 0), e, s(static_cast<size_t>(rank), 1);
                for (int i = 1; i <= rank; i++) e.push_back(want[static_cast<size_t>(i)] - 1);
                s[0] = 2;
                std::swap(b.back(), e.back());
                sdftest::SliceRef ref(b, e, s, {});
                int64_t b64[8] = {rank}, e64[8] = {rank}, s64[8] = {rank}, count = 0, out[8] = {0};
                for (int i = 0; i < rank; i++) {
                    b64[i + 1] = b[static_cast<size_t>(i)];
                    e64[i + 1] = e[static_cast<size_t>(i)];
                    s64[i + 1] = s[static_cast<size_t>(i)];
                }
                void* data = nullptr;
                ASSERT_EQ(Sdf_Read_Slice64(ch, name.c_str(), &data, b64, e64, s64, nullptr, &count, out), 0);
                ASSERT_EQ(count, ref.count());
                Bytes got(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + count * testElen(type));
                EXPECT_EQ(got, ref.read(expect, testElen(type), want));
                EXPECT_EQ(Sdf_Free(data), 1);
            }
        }
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }
}

TEST_F(SdfArrays, WritesGrowTheLastExtentAndLeaveZerosBehind) {
    struct Case {
        const char* what;
        int32_t start[3];  // rank 0: an append
        int32_t count;
        std::vector<int64_t> dims;
        std::vector<double> expect;
    };
    const Case cases[] = {
        {"append", {0}, 3, {2, 3, 3}, {1, 2, 3, 4, 5, 6, 10, 11, 12}},
        {"behind the end", {2, 0, 5}, 3, {2, 3, 6}, {1, 2, 3, 4, 5, 6, 0, 0, 0, 0, 0, 0, 0, 0, 0, 10, 11, 12}},
        {"half a layer", {2, 1, 2}, 1, {2, 3, 3}, {1, 2, 3, 4, 5, 6, 0, 10, 0}},
        {"inside", {2, 1, 1}, 2, {2, 3, 2}, {1, 2, 3, 4, 10, 11}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const std::string p = path("grow.sdf");
        int ch = sdftest::openNew(p, "BigEndian");
        const double first[6] = {1, 2, 3, 4, 5, 6}, data[3] = {10, 11, 12};
        ASSERT_EQ(sdftest::defineFilled(ch, "a", SDF_DBLE_T, {3, 2}, first), 0);
        int32_t start[3] = {c.start[0], c.start[1], c.start[2]};
        ASSERT_EQ(Sdf_Write_Array(ch, "a", data, c.start[0] ? start : nullptr, c.count), 0);
        if (c.start[0]) {  // the start moves behind the last element written
            const int64_t pos = c.start[1] + 3 * c.start[2] + c.count;
            EXPECT_EQ(start[1], pos % 3);
            EXPECT_EQ(start[2], pos / 3);
        }
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
        ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0);
        EXPECT_EQ(dimsOf(ch, "a"), c.dims);
        Bytes got = sdftest::readAll(ch, "a");
        ASSERT_EQ(got.size(), c.expect.size() * 8);
        for (size_t i = 0; i < c.expect.size(); i++) {
            double v;
            memcpy(&v, got.data() + 8 * i, 8);
            EXPECT_EQ(v, c.expect[i]) << "element " << i;
        }
        ASSERT_EQ(Sdf_Close(ch, "DELETE"), 0);
    }
}

TEST_F(SdfArrays, ZeroArraysDecidesWhatAReusedBlockHolds) {
    for (const char* zero : {"No", "Yes"}) {
        SCOPED_TRACE(zero);
        const std::string p = path("reuse.sdf");
        int ch = sdftest::openNew(p, "LittleEndian");
        ASSERT_EQ(Sdf_Set_Opts_Chan(ch, (std::string("Zero_Arrays=") + zero).c_str()), 0);
        const int32_t dims[2] = {1, 320}, small[2] = {1, 64};  // 5 chunks and 1
        Bytes old = values(SDF_DBLE_T, 320, 7);
        ASSERT_EQ(sdftest::defineFilled(ch, "old", SDF_DBLE_T, {320}, old.data()), 0);
        ASSERT_EQ(Sdf_Define_Array(ch, "fence", SDF_INT_T, 0, dims, nullptr, nullptr), 0);
        fcb* f = sdf_chan_get(ch);
        const int where = f->file->blks->rows[rowOf(ch, "old")->record->value.i[2]].entry->start;
        int pos = -1;
        ventry* row = sdf_find_var(f, "old", &pos);
        ASSERT_EQ(sdf_delete_var(f, row, pos), 0);
        ASSERT_EQ(Sdf_Write(ch), 0);

        // Once by a define, once by the growth of an array.
        ASSERT_EQ(Sdf_Define_Array(ch, "new", SDF_DBLE_T, 0, small, nullptr, nullptr), 0);
        const int32_t none[2] = {1, 0};
        ASSERT_EQ(Sdf_Define_Array(ch, "grown", SDF_DBLE_T, 0, none, nullptr, nullptr), 0);
        const double last = -1;
        int32_t at63[2] = {1, 63};
        ASSERT_EQ(Sdf_Write_Array(ch, "grown", &last, at63, 1), 0);
        for (const char* name : {"new", "grown"}) {
            SCOPED_TRACE(name);
            const int at = f->file->blks->rows[rowOf(ch, name)->record->value.i[2]].entry->start - where;
            ASSERT_TRUE(at >= 0 && at < 5) << "the freed chunks are taken again";
            Bytes want = std::string(zero) == "Yes" ? Bytes(512, 0) : Bytes(old.begin() + 512 * at, old.begin() + 512 * (at + 1));
            if (std::string(name) == "grown") memcpy(want.data() + 504, &last, 8);
            EXPECT_EQ(sdftest::readAll(ch, name), want);
        }
        ASSERT_EQ(Sdf_Close(ch, "DELETE"), 0);
    }
}

TEST_F(SdfArrays, ReadCountsAndStarts) {
    int ch = sdftest::openInternal("counts");
    const int32_t data[6] = {10, 11, 12, 13, 14, 15};
    ASSERT_EQ(sdftest::defineFilled(ch, "a", SDF_INT_T, {3, 2}, data), 0);
    ASSERT_EQ(Sdf_Write_Array(ch, "a", data, nullptr, 6), 0);
    EXPECT_EQ(dimsOf(ch, "a"), (std::vector<int64_t>{2, 3, 4})) << "no start appends behind the end";

    struct Case {
        const char* what;
        int32_t start[3];
        int32_t count;
        int rc;
        int32_t nread;
        int32_t first;
    };
    const Case cases[] = {
        {"count 0 reads all", {2, 0, 0}, 0, 0, 12, 10},
        {"no start, all", {0}, -5, 0, 12, 10},
        {"10 of the last 6", {2, 0, 2}, 10, 2020, 6, 10},
        {"a run across rows", {2, 2, 2}, 3, 0, 3, 12},
        {"start behind the end", {2, 0, 4}, 1, 3023, 0, 0},
        {"start far behind", {2, 2, 9}, 0, 3023, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        int32_t start[3] = {c.start[0], c.start[1], c.start[2]}, nread = -1;
        int32_t buf[16] = {0};
        void* p = buf;
        EXPECT_EQ(Sdf_Read_Array(ch, "a", &p, start, c.count, &nread), c.rc);
        EXPECT_EQ(nread, c.nread);
        if (c.nread > 0) {
            EXPECT_EQ(buf[0], c.first);
        }
    }
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfArrays, ZeroExtentHasNoChainUntilTheFirstWrite) {
    const std::string p = path("empty.sdf");
    int ch = sdftest::openNew(p, "BigEndian");
    const int32_t dims[3] = {2, 4, 0};
    ASSERT_EQ(Sdf_Define_Array(ch, "e", SDF_REAL_T, 0, dims, nullptr, nullptr), 0);
    EXPECT_EQ(rowOf(ch, "e")->record->value.i[2], 0);
    EXPECT_EQ(rowOf(ch, "e")->record->value.i[3], 0);
    int32_t nread = -1;
    void* p0 = nullptr;
    EXPECT_EQ(Sdf_Read_Array(ch, "e", &p0, nullptr, 0, &nread), 0);
    EXPECT_EQ(nread, 0);
    EXPECT_EQ(p0, nullptr);
    const float row[6] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(Sdf_Write_Array(ch, "e", row, nullptr, 6), 0);
    EXPECT_EQ(dimsOf(ch, "e"), (std::vector<int64_t>{2, 4, 2}));
    EXPECT_NE(rowOf(ch, "e")->record->value.i[2], 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0);
    Bytes got = sdftest::readAll(ch, "e");
    ASSERT_EQ(got.size(), 32u);
    float v[8];
    memcpy(v, got.data(), 32);
    EXPECT_EQ(v[5], 6.0f);
    EXPECT_EQ(v[7], 0.0f);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    // A zero extent below the last leaves nothing to grow along.
    ch = sdftest::openInternal("flat");
    const int32_t flat[3] = {2, 0, 3};
    ASSERT_EQ(Sdf_Define_Array(ch, "f", SDF_INT_T, 0, flat, nullptr, nullptr), 0);
    const int32_t one = 1;
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Write_Array(ch, "f", &one, nullptr, 1), 3000);
    EXPECT_TRUE(reported(3023));
    EXPECT_EQ(dimsOf(ch, "f"), (std::vector<int64_t>{2, 0, 3}));
}

TEST_F(SdfArrays, InternalReadLendsAPointerIntoTheArray) {
    int ch = sdftest::openInternal("lend");
    int32_t data[10];
    for (int i = 0; i < 10; i++) data[i] = i * i;
    ASSERT_EQ(sdftest::defineFilled(ch, "i", SDF_INT_T, {10}, data), 0);
    void* p = nullptr;
    int32_t from[2] = {1, 2}, nread = 0;
    ASSERT_EQ(Sdf_Read_Array(ch, "i", &p, from, 3, &nread), 0);
    ASSERT_EQ(nread, 3);
    const auto* lent = static_cast<const int32_t*>(p);
    EXPECT_EQ(lent[0], 4);
    int32_t at[2] = {1, 3};
    const int32_t seven = 7;
    ASSERT_EQ(Sdf_Write_Array(ch, "i", &seven, at, 1), 0);
    EXPECT_EQ(lent[1], 7) << "the pointer sees the array itself";
    EXPECT_EQ(Sdf_Free(p), 0) << "a lent pointer is not the caller's to free";
}

TEST_F(SdfArrays, ChainsOfManyBlocksReadBackAcrossTheirBorders) {
    const std::string p = path("chain.sdf");
    int ch = sdftest::openNew(p, "BigEndian");
    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Max_Extra_Data_Chunks=0"), 0);
    const int32_t dims[2] = {1, 0};
    ASSERT_EQ(Sdf_Define_Array(ch, "a", SDF_DCMPX_T, 0, dims, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Define_Array(ch, "b", SDF_INT64_T, 0, dims, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Define_Array(ch, "alone", SDF_REAL_T, 0, dims, nullptr, nullptr), 0);
    Bytes a = values(SDF_DCMPX_T, 330, 1), b = values(SDF_INT64_T, 330, 2);
    for (int k = 0; k < 330; k += 33) {  // interleaved growth: the chains can't stay whole
        ASSERT_EQ(Sdf_Write_Array(ch, "a", a.data() + k * 16, nullptr, 33), 0);
        ASSERT_EQ(Sdf_Write_Array(ch, "b", b.data() + k * 8, nullptr, 33), 0);
    }
    EXPECT_GT(chainBlocks(ch, "a"), 3);
    Bytes lone = values(SDF_REAL_T, 1000, 3);
    for (int k = 0; k < 1000; k += 100) ASSERT_EQ(Sdf_Write_Array(ch, "alone", lone.data() + k * 4, nullptr, 100), 0);
    EXPECT_EQ(chainBlocks(ch, "alone"), 1) << "growth at the end of the file merges into the last block";
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(sdftest::readAll(ch, "a"), a);
    EXPECT_EQ(sdftest::readAll(ch, "b"), b);
    EXPECT_EQ(sdftest::readAll(ch, "alone"), lone);
    // On disk the chain is one stream of big-endian elements, block after
    // block in chain order.
    const Bytes disk = sdftest::readBytes(p);
    sdfile* file = sdf_chan_get(ch)->file;
    size_t done = 0;
    for (int blk = rowOf(ch, "b")->record->value.i[2]; blk != 0 && done < b.size();
         blk = file->blks->rows[blk].entry->next) {
        const sdf_blkent* e = file->blks->rows[blk].entry;
        for (size_t i = 0; i < static_cast<size_t>(e->chunks) * 512 && done < b.size(); i++, done++) {
            const size_t at = static_cast<size_t>(e->start) * 512 + i;
            ASSERT_LT(at, disk.size());
            ASSERT_EQ(disk[at], b[(done & ~size_t(7)) + 7 - (done & 7)]) << "stream byte " << done;
        }
    }
    EXPECT_EQ(done, b.size());
    // A run that starts inside one block and ends in another.
    int64_t start[2] = {1, 30}, got = 0;
    std::vector<unsigned char> buf(100 * 16);
    void* out = buf.data();
    ASSERT_EQ(Sdf_Read_Array64(ch, "a", &out, start, 100, &got), 0);
    EXPECT_EQ(got, 100);
    EXPECT_EQ(Bytes(buf.begin(), buf.end()), Bytes(a.begin() + 30 * 16, a.begin() + 130 * 16));
    EXPECT_EQ(start[1], 130);

    // A chain cut short in memory: the read stops with a code.
    sdfile* s = sdf_chan_get(ch)->file;
    const int first = rowOf(ch, "a")->record->value.i[2];
    s->blks->rows[s->blks->rows[first].entry->next].entry->next = 0;
    ZU_errClear("*", 0);
    int rc = -1;
    EXPECT_TRUE(sdftest::readAll(ch, "a", &rc).empty());
    EXPECT_EQ(rc, 4000);
    EXPECT_NE(sdftest::errorText(4001).find("Unexpected end to block chain"), std::string::npos);
}

TEST_F(SdfArrays, CharacterElementsArePaddedWithBlanksAndCutOnRead) {
    int ch = sdftest::openNew(path("chars.sdf"), "LittleEndian");
    const int32_t dims[2] = {1, 0};
    ASSERT_EQ(Sdf_Define_Array(ch, "c", SDF_CHAR_T, 5, dims, nullptr, nullptr), 0);
    char s0[] = "ab", s1[] = "abcdefg", s2[] = "", s3[] = "x y";
    char* in[4] = {s0, s1, s2, s3};
    ASSERT_EQ(Sdf_Write_Carray(ch, "c", in, nullptr, 4), 0);
    const std::string stored = "ab   abcde     x y  ";
    EXPECT_EQ(sdftest::readAll(ch, "c"), Bytes(stored.begin(), stored.end()));

    char** strings = nullptr;
    int32_t nread = 0;
    ASSERT_EQ(Sdf_Read_Carray(ch, "c", &strings, nullptr, 0, &nread), 0);
    ASSERT_EQ(nread, 4);
    EXPECT_STREQ(strings[0], "ab");
    EXPECT_STREQ(strings[1], "abcde");
    EXPECT_STREQ(strings[2], "");
    EXPECT_STREQ(strings[3], "x y");
    EXPECT_EQ(Sdf_Free(strings), 1);

    struct Width {
        int width;
        std::string fields;
    };
    for (const Width& w : {Width{3, "ab abc   x y"}, Width{7, "ab     abcde         x y    "}}) {
        char* buffer = nullptr;
        ASSERT_EQ(Sdf_Read_CarrayF(ch, "c", &buffer, w.width, nullptr, 0, &nread), 0);
        EXPECT_EQ(std::string(buffer, static_cast<size_t>(4 * w.width)), w.fields);
        EXPECT_EQ(Sdf_Free(buffer), 1);
    }
    // Fields in: up to the first NUL or min(width, elen) characters.
    const char fields[] = {'p', 'q', 0, 'r', 's', 't'};
    int32_t start[2] = {1, 1};
    ASSERT_EQ(Sdf_Write_CarrayF(ch, "c", fields, 3, start, 2), 0);
    const std::string after = "ab   pq   rst  x y  ";
    EXPECT_EQ(sdftest::readAll(ch, "c"), Bytes(after.begin(), after.end()));
    // Carray forms refuse arrays of other types.
    ASSERT_EQ(Sdf_Define_Array(ch, "n", SDF_INT_T, 0, dims, nullptr, nullptr), 0);
    EXPECT_EQ(Sdf_Read_Carray(ch, "n", &strings, nullptr, 0, &nread), 3000);
    EXPECT_TRUE(reported(3015));
}

TEST_F(SdfArrays, BadArgumentsGiveTheirCodesAndLeaveTheFileIntact) {
    const std::string p = path("bad.sdf");
    int ch = sdftest::openNew(p, "BigEndian");
    const int32_t dims[3] = {2, 2, 3};
    ASSERT_EQ(Sdf_Define_Array(ch, "a", SDF_DBLE_T, 0, dims, nullptr, nullptr), 0);
    Bytes a = values(SDF_DBLE_T, 6, 4);
    ASSERT_EQ(Sdf_Write_Array(ch, "a", a.data(), nullptr, 0), 0);
    int32_t first[3] = {2, 0, 0};
    ASSERT_EQ(Sdf_Write_Array(ch, "a", a.data(), first, 6), 0);
    ASSERT_TRUE(sdftest::putVar(ch, "s", 1.5));
    ASSERT_EQ(Sdf_Write(ch), 0);

    double buf[32];
    struct Case {
        const char* what;
        const char* name;
        int32_t start[9];
        bool write;
        int rc;
        int detail;
    };
    const Case cases[] = {
        {"unknown variable", "nope", {0}, false, 3000, 3010},
        {"unknown variable, write", "nope", {0}, true, 3000, 3010},
        {"a scalar", "s", {0}, false, 3000, 3012},
        {"invalid name", "1a", {0}, true, 3000, 3005},
        {"start of rank 1", "a", {1, 0}, false, 3000, 3022},
        {"start of rank 3", "a", {3, 0, 0, 0}, true, 3000, 3022},
        {"negative index", "a", {2, -1, 0}, true, 3000, 3023},
        {"rank 8", "a", {8, 0, 0, 0, 0, 0, 0, 0, 0}, false, 3000, 3023},
        {"start behind the end", "a", {2, 1, 3}, false, 3023, 3023},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ZU_errClear("*", 0);
        int32_t start[9];
        memcpy(start, c.start, sizeof start);
        int32_t nread = -1;
        void* out = buf;
        EXPECT_EQ(c.write ? Sdf_Write_Array(ch, c.name, buf, start, 2) : Sdf_Read_Array(ch, c.name, &out, start, 2, &nread),
                  c.rc);
        EXPECT_TRUE(reported(c.detail));
        if (!c.write) {
            EXPECT_EQ(nread, 0);
        }
    }
    struct Define {
        const char* what;
        const char* name;
        int type;
        int32_t dims[9];
        int detail;
    };
    const Define defines[] = {
        {"type 13", "d", 13, {1, 4}, 3020},
        {"an array type", "d", 111, {1, 4}, 3020},
        {"rank 0", "d", SDF_INT_T, {0}, 3021},
        {"rank 8", "d", SDF_INT_T, {8, 1, 1, 1, 1, 1, 1, 1, 1}, 3021},
        {"extent -1", "d", SDF_INT_T, {2, 3, -1}, 3021},
        {"invalid name", "d$", SDF_INT_T, {1, 4}, 3005},
    };
    for (const Define& d : defines) {
        SCOPED_TRACE(d.what);
        ZU_errClear("*", 0);
        EXPECT_EQ(Sdf_Define_Array(ch, d.name, d.type, 0, d.dims, nullptr, nullptr), 3000);
        EXPECT_TRUE(reported(d.detail));
        EXPECT_EQ(rowOf(ch, d.name), nullptr);
    }
    EXPECT_EQ(Sdf_Write_Array(99, "a", buf, nullptr, 1), 3001);
    EXPECT_EQ(sdftest::readAll(ch, "a"), a);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(Sdf_Write_Array(ch, "a", buf, nullptr, 1), 3002);
    EXPECT_EQ(dimsOf(ch, "a"), (std::vector<int64_t>{2, 2, 3}));
    EXPECT_EQ(sdftest::readAll(ch, "a"), a);
}

TEST_F(SdfArrays, SixtyFourBitFormsGoPast2To31Elements) {
    // One byte behind 2^31 elements of one byte each: the chain is 2 GB of
    // chunks, but only the byte written lands on the disk.
    const std::string p = path("huge.sdf");
    int ch = sdftest::openNew(p, "LittleEndian");
    const int64_t dims[2] = {1, 0};
    ASSERT_EQ(Sdf_Define_Array64(ch, "h", SDF_CHAR_T, 1, dims, nullptr, nullptr), 0);
    const int64_t far = (INT64_C(1) << 31) + 5;
    int64_t start[2] = {1, far};
    ASSERT_EQ(Sdf_Write_Array64(ch, "h", "Z", start, 1), 0);
    EXPECT_EQ(start[1], far + 1);
    EXPECT_EQ(dimsOf(ch, "h"), (std::vector<int64_t>{1, far + 1}));
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    struct stat st;
    ASSERT_EQ(stat(p.c_str(), &st), 0);
    EXPECT_LT(st.st_blocks * 512, INT64_C(1) << 24) << "the skipped chunks take no disk";

    ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0);
    char two[2] = {'?', '?'};
    void* out = two;
    int64_t from[2] = {1, far - 1}, got = 0;
    ASSERT_EQ(Sdf_Read_Array64(ch, "h", &out, from, 5, &got), 2020);
    EXPECT_EQ(got, 2);
    EXPECT_EQ(two[0], 0);
    EXPECT_EQ(two[1], 'Z');
    // The 32-bit forms refuse what they can't count, before moving data.
    void* none = nullptr;
    int32_t nread = -1, count = -1, odims[8];
    EXPECT_EQ(Sdf_Read_Array(ch, "h", &none, nullptr, 0, &nread), 2030);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(Sdf_Read_Slice(ch, "h", &none, nullptr, nullptr, nullptr, nullptr, &count, odims), 2030);
    EXPECT_NE(sdftest::errorText(2030).find(" slice from "), std::string::npos);
    const int32_t b1[2] = {1, 0}, e1[2] = {1, 3};
    ASSERT_EQ(Sdf_Read_Slice(ch, "h", &none, b1, e1, nullptr, nullptr, &count, odims), 0);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(Sdf_Free(none), 1);
}

}  // namespace

// A damaged record must be refused at open: the array paths copy elen bytes
// per element and walk the chain the record names, so a wrong element
// length, chunk count, data block or extent would make them overrun the
// caller's buffer or copy the caller's memory into the file.
TEST_F(SdfArrays, DamagedRecordIsRefusedAtOpenNotTrustedByArrayIo) {
    const std::string p = path("damaged.sdf");
    {
        int ch = sdftest::openNew(p, "LittleEndian");
        const double twelve[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
        for (const char* name : {"a", "b"}) ASSERT_EQ(sdftest::defineFilled(ch, name, SDF_DBLE_T, {3, 4}, twelve), 0);
        const double x = 2.5;
        ASSERT_EQ(Sdf_Write_Var(ch, "x", SDF_DBLE_T, &x, nullptr, nullptr), 0);
        ASSERT_EQ(Sdf_Write_Char(ch, "s", "abc", nullptr), 0);
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }
    const auto good = sdftest::readBytes(p);
    struct Case {
        const char* what;
        std::function<void(fcb*)> damage;
    };
    auto rec = [](fcb* f, const char* name) { return sdf_find_var(f, name, nullptr)->record; };
    auto first = [&](fcb* f, const char* name) { return f->file->blks->rows[rec(f, name)->value.i[2]].entry; };
    const Case cases[] = {
        {"sound", [](fcb*) {}},
        {"array elen", [&](fcb* f) { rec(f, "a")->elen = 64; }},
        {"scalar elen", [&](fcb* f) { rec(f, "x")->elen = 16; }},
        {"string elen without a slot", [&](fcb* f) { rec(f, "s")->value.i[2] = 0; }},
        {"chunk count", [&](fcb* f) { rec(f, "a")->value.i[3] += 1; }},
        {"no chain", [&](fcb* f) { rec(f, "a")->value.i[2] = 0; }},
        {"data block type", [&](fcb* f) { first(f, "a")->type = -4; }},
        {"shared data block", [&](fcb* f) { rec(f, "b")->value.i[2] = rec(f, "a")->value.i[2]; }},
        {"extent beyond the chain",
         [&](fcb* f) {
             const int64_t big[8] = {2, 3, 400};
             ASSERT_EQ(sdf_array_put_dims(f, sdf_find_var(f, "a", nullptr), big), 0);
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        sdftest::writeBytes(p, good);
        fcb* f = nullptr;
        ASSERT_EQ(sdf_load_file(p.c_str(), 1, &f), 0);
        c.damage(f);
        sdf_mark(f->file, sdf_find_var(f, "a", nullptr)->block);
        sdf_mark(f->file, f->file->blks->rows[rec(f, "a")->value.i[2]].owner);
        ASSERT_EQ(sdf_close_file(f, 1), 0);
        ZU_errClear("*", 0);
        int ch = -1;
        const int rc = Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "WRITE");
        if (std::string(c.what) != "sound") {
            EXPECT_EQ(rc, 3051);
            EXPECT_NE(sdftest::errorText(3051).find("is corrupt"), std::string::npos);
            continue;
        }
        ASSERT_EQ(rc, 0);
        double out[13];
        out[12] = -1;  // a guard behind the twelve
        int64_t start[8] = {0}, got = 0;
        void* buf = out;
        EXPECT_EQ(Sdf_Read_Array64(ch, "a", &buf, start, 12, &got), 0);
        EXPECT_EQ(got, 12);
        EXPECT_EQ(out[11], 12);
        EXPECT_EQ(out[12], -1);
        EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }
}
