// The shortcuts of opening and listing give what the plain paths give: the
// sort of the table on packed name heads, table blocks that lie back to back
// loaded in one read (falling back to single block reads), "*" listed
// without the matcher.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <set>

#include "sdf_value_helpers.h"

namespace {

using Names = std::vector<std::string>;

// Names around the 8- and 16-byte edges of the heads, in mixed case and
// with "_" (between upper and lower letters, so a wrong fold shows).
Names edgeNames() {
    const char* stems[] = {"", "abcdefg", "abcdefgh", "abcdefghijklmno", "abcdefghijklmnop", "ABCDEFGHIJKLMNOPQ"};
    const std::string rest = "aAbBzZ_9:$";
    std::mt19937 rng(7);
    std::set<std::string> folded;
    Names out;
    while (out.size() < 3000) {
        std::string n = stems[rng() % 6];
        if (n.empty()) n += rest[rng() % 7];
        for (unsigned k = rng() % 7; k > 0; k--) n += rest[rng() % rest.size()];
        if (n.back() == '$') n += 'x';
        std::string up = n;
        std::transform(up.begin(), up.end(), up.begin(), ::toupper);
        if (folded.insert(up).second) out.push_back(n);
    }
    return out;
}

Names listed(int ch, const char* templ) {
    char** l = nullptr;
    int count = 0;
    EXPECT_EQ(Sdf_List(ch, templ, &l, &count), 0) << templ;
    return sdftest::takeList(l, count);
}

// Reads above `limit` bytes fail (0: none do); all are counted.
int64_t limit = 0;
int reads = 0, refused = 0;
ssize_t countedRead(int fd, void* buf, size_t n, off_t at) {
    reads++;
    if (limit > 0 && static_cast<int64_t>(n) > limit) return refused++, errno = EIO, -1;
    return sdf_io_default.pread(fd, buf, n, at);
}

class SdfReopen : public sdftest::ChannelTest {
protected:
    // Writes every name with its index, reopens under the counted reads (with
    // those longer than any table block refused, when asked), and checks
    // order, listing and values against the file as it was written.
    void roundTrip(const char* opts, bool refuse_long) {
        const Names names = edgeNames();
        int ch = sdftest::createFile(path("r.sdf"), opts);
        for (size_t i = 0; i < names.size(); i++) {
            const double v = static_cast<double>(i);
            ASSERT_EQ(Sdf_Write_Var(ch, names[i].c_str(), SDF_DBLE_T, &v, nullptr, nullptr), 0) << names[i];
        }
        const Names before = listed(ch, "*");
        limit = 0;
        const sdfile* s = sdf_chan_get(ch)->file;
        for (int b = 2; refuse_long && b < s->blks->count; b++)
            if (s->blks->rows[b].entry && s->blks->rows[b].entry->type >= SDF_CH_VARINF)
                limit = std::max<int64_t>(limit, int64_t{s->blks->rows[b].entry->chunks} * s->hdr->chunk_size);
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
        sdf_io.pread = countedRead;
        reads = refused = 0;
        ch = sdftest::openFile(path("r.sdf"), "READ");
        sdf_io = sdf_io_default;
        ASSERT_NE(sdf_chan_get(ch), nullptr);
        s = sdf_chan_get(ch)->file;
        EXPECT_EQ(listed(ch, "*"), before);
        EXPECT_EQ(listed(ch, "?*"), before) << "the matcher agrees";
        for (int p = 1; p < s->vars->count; p++)
            ASSERT_LT(sdf_name_cmp(s, s->vars->rows[s->vars->key[p - 1]].name, s->vars->rows[s->vars->key[p]].name), 0);
        for (size_t i = 0; i < names.size(); i++) {
            double v = -1;
            ASSERT_EQ(Sdf_Get_Val(ch, names[i].c_str(), &v), 0) << names[i];
            ASSERT_EQ(v, static_cast<double>(i)) << names[i];
        }
        if (!refuse_long) {
            EXPECT_LT(reads, s->vars->count / 32) << "blocks back to back load together";
        }
        EXPECT_EQ(Sdf_Close(ch, "DELETE"), 0);
    }
};

TEST_F(SdfReopen, OrderAndValuesSurviveOnEveryCaseRuleAndByteOrder) {
    for (const char* opts : {"Case_Sensitive=Yes", "Case_Sensitive=No", "Sex=BigEndian,Case_Sensitive=No"}) {
        SCOPED_TRACE(opts);
        roundTrip(opts, false);
    }
}

TEST_F(SdfReopen, RefusedLongReadsFallBackToSingleBlocks) {
    roundTrip(nullptr, true);
    EXPECT_GT(refused, 0) << "some run of blocks was longer than any one block";
}

}  // namespace
