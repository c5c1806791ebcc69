/*
 * zu_ndim_check.cpp - the full check of a map file before anything of the
 * table is allocated.
 *
 * One pass over the text reports every fault it meets, each with the line
 * where it was found. Some faults leave the rest of the file unreadable and
 * end the check at once; the others are reported and the pass goes on, so
 * a user sees all of them in one go. Whatever was reported, the file is
 * bad. The only allocation is the array of axis sizes, which a good check
 * hands to the reader.
 */
#include "zu_ndim.h"

#include <cstring>

namespace {

const char *const kRoutine = "ZU_ndimCreate";

enum class FileType { Full, Ntuples, Sparse, Unknown };

FileType typeOf(const NdimToken &t)
{
    if (t.kind != NdimToken::Word)
        return FileType::Unknown;
    auto is = [&](const char *name) {
        return t.length == strlen(name) && ZU_strNCaseCmp(t.text, name, t.length) == 0;
    };
    return is("full") ? FileType::Full : is("ntuples") ? FileType::Ntuples
                                       : is("sparse")  ? FileType::Sparse
                                                       : FileType::Unknown;
}

class Checker {
public:
    Checker(const char *text, size_t length, const char *path) : lex_(text, length), path_(path) {}

    /* Returns true for a good file; fills dims_ and sizes_. */
    bool run();
    int dims_ = 0;
    int32_t *sizes_ = nullptr;

private:
    void fault(NdimMsg id, size_t at)
    {
        bad_ = true;
        zu_ndimRaise(kRoutine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::FaultAt, zu_ndimMsg(id), path_,
                     lex_.lineOf(at));
    }
    bool header(FileType *type);
    bool axes();
    bool fullValues();
    void tupleSection(bool withDefault);
    void tuple(NdimToken first);

    NdimLexer lex_;
    const char *path_;
    bool bad_ = false;
    double points_ = 1;
};

bool Checker::header(FileType *type)
{
    NdimToken t = lex_.next();
    *type = typeOf(t);
    if (*type == FileType::Unknown) {
        fault(NdimMsg::UnknownType, t.at);
        return false;
    }
    t = lex_.next();
    int32_t dims = 0;
    if (!zu_ndimParseInt(t, &dims)) {
        fault(NdimMsg::DimsMissing, t.at);
        return false;
    }
    if (dims < 1) {
        fault(NdimMsg::DimsBelowOne, t.at);
        return false;
    }
    t = lex_.next();
    if (t.kind != NdimToken::Hash) {
        fault(NdimMsg::NoTerminator, t.at);
        return false;
    }
    /* Each axis needs at least a value and its '#': a count beyond that can
     * only be a fault, and must not size an allocation. */
    if (*type == FileType::Full && lex_.countHashes() < static_cast<size_t>(dims) + 1) {
        fault(NdimMsg::FewFields, t.at);
        return false;
    }
    if (lex_.countHashes() < static_cast<size_t>(dims)) {
        fault(NdimMsg::FewAxes, lex_.peek().at);
        return false;
    }
    dims_ = dims;
    return true;
}

bool Checker::axes()
{
    sizes_ = static_cast<int32_t *>(ZU_allocMem(sizeof(int32_t) * dims_, "ZU_ndim_readArray::sizes"));
    if (!sizes_) {
        bad_ = true;
        ZU_Err(kRoutine, ZU_NDIM_FAILED, ZU_SEV_ERROR, zu_ndimMsg(NdimMsg::CheckAlloc));
        return false;
    }
    for (int d = 0; d < dims_; ++d) {
        float last = 0;
        int32_t n = 0;
        for (;;) {
            NdimToken t = lex_.next();
            float v;
            if (t.kind == NdimToken::Hash && n > 0)
                break;
            if (!zu_ndimParseFloat(t, &v) || n == INT32_MAX) {
                fault(NdimMsg::FewAxes, t.at);
                return false;
            }
            if (n > 0 && !(v > last))
                fault(NdimMsg::NotIncreasing, t.at);
            last = v;
            ++n;
        }
        sizes_[d] = n;
        points_ *= n;
    }
    return true;
}

bool Checker::fullValues()
{
    double n = 0;
    NdimToken t = lex_.next();
    float v;
    for (; n < points_; ++n, t = lex_.next()) {
        if (!zu_ndimParseFloat(t, &v)) {
            fault(NdimMsg::FewPoints, t.at);
            return false;
        }
    }
    if (zu_ndimParseFloat(t, &v)) {
        fault(NdimMsg::ManyPoints, t.at);
        while (zu_ndimParseFloat(t, &v))
            t = lex_.next();
    }
    if (t.kind != NdimToken::Hash) {
        fault(NdimMsg::NoTerminator, t.at);
        return false;
    }
    t = lex_.next();
    if (t.kind != NdimToken::End) {
        fault(NdimMsg::ExtraData, t.at);
        return false;
    }
    return true;
}

/* One "i1 ... in value #" line, of which `first` is the first field. */
void Checker::tuple(NdimToken first)
{
    NdimToken t = first;
    for (int d = 0; d < dims_; ++d, t = lex_.next()) {
        int32_t i;
        if (t.kind != NdimToken::Word) {
            fault(NdimMsg::Incomplete, t.at);
            return;
        }
        if (!zu_ndimParseInt(t, &i) || i < 0 || i >= sizes_[d])
            fault(NdimMsg::IndexBounds, t.at);
    }
    float v;
    if (t.kind != NdimToken::Word || !zu_ndimParseFloat(t, &v)) {
        fault(NdimMsg::Incomplete, t.at);
        if (t.kind != NdimToken::Word)
            return;
    }
    t = lex_.next();
    if (t.kind == NdimToken::Hash || t.kind == NdimToken::End) {
        if (t.kind == NdimToken::End)
            fault(NdimMsg::NoTerminator, t.at);
        return;
    }
    fault(NdimMsg::NoTerminator, t.at);
    while (t.kind == NdimToken::Word)
        t = lex_.next();
}

void Checker::tupleSection(bool withDefault)
{
    if (withDefault) {
        NdimToken t = lex_.next();
        float v;
        if (!zu_ndimParseFloat(t, &v)) {
            fault(NdimMsg::NoDefault, t.at);
            if (t.kind == NdimToken::Word)
                t = lex_.next();
        } else {
            t = lex_.next();
        }
        if (t.kind != NdimToken::Hash) {
            fault(NdimMsg::NoTerminator, t.at);
            while (t.kind == NdimToken::Word)
                t = lex_.next();
        }
    }
    for (NdimToken t = lex_.next(); t.kind != NdimToken::End; t = lex_.next()) {
        if (t.kind == NdimToken::Hash)
            fault(NdimMsg::Incomplete, t.at);
        else
            tuple(t);
    }
}

bool Checker::run()
{
    FileType type;
    if (!header(&type) || !axes())
        return false;
    if (type == FileType::Full) {
        if (!fullValues())
            return false;
    } else {
        tupleSection(type == FileType::Ntuples);
    }
    return !bad_;
}

} // namespace

int zu_ndimCheck(const char *text, size_t length, const char *path, int *dimensions, int32_t **sizes)
{
    Checker check(text, length, path);
    bool good = check.run();
    if (!good) {
        ZU_freeMem(check.sizes_);
        return ZU_NDIM_FAILED;
    }
    *dimensions = check.dims_;
    *sizes = check.sizes_;
    return 0;
}
