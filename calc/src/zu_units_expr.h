/*
 * zu_units_expr.h - the items of a unit expression and the arena that holds
 * them, shared by the tokeniser (zu_units_lex.cpp) and the evaluator
 * (zu_units_eval.cpp).
 *
 * Items of one evaluation live in a per-thread arena that is reset, not
 * freed, between evaluations, so a parse allocates nothing once warm. Item
 * texts are views into the text being evaluated (the caller's, or a table
 * definition), which outlive the evaluation. The tokenised trees of table
 * definitions are kept per thread in a persistent arena until the tables
 * change; evaluation never alters a tree except to fill its lazy fields
 * (sub, resolved), which depend only on the tables.
 */
#ifndef ZU_UNITS_EXPR_H
#define ZU_UNITS_EXPR_H

#include <memory>
#include <string_view>
#include <vector>

namespace zu_units {

enum ItemKind { kGroup = -3, kWord = -1, kOperator = 0, kInteger = 1, kReal = 3 };

enum OpCode {
    kOpOffset = 0,
    kOpAdd = 1,
    kOpSub = 2,
    kOpMul = 3,
    kOpDiv = 4,
    kOpDot = 5,
    kOpPrefix = 6,
    kOpPow = 7,
    kOpPlus = 8,
    kOpMinus = 9,
    kOpExp = 10,
    kOpLog = 11,
    kOpUnknownFunction = 99
};

constexpr int kOperandPriority = 6;

struct Prefix;

struct Item {
    int kind = kWord;
    int priority = kOperandPriority;
    int op = 0;               /* operator code; a number's value as int, 0 out of range */
    bool synthetic = false;   /* operator the tokeniser inserted */
    bool persistent = false;  /* lives in the definition cache, not in one evaluation */
    double value = 0;
    std::string_view text;    /* spelling; a group's inner text; a function's name */
    Item *left = nullptr;
    Item *right = nullptr;    /* operand; before folding, the next item */
    /* Filled on first use: a group's folded tree; a word's row and prefix. */
    bool subBuilt = false;
    Item *sub = nullptr;
    bool resolved = false;
    const char *definition = nullptr;
    const Prefix *prefix = nullptr;
    size_t cut = 0;
};

class Arena {
public:
    explicit Arena(bool persistent = false) : persistent_(persistent) {}
    Item *make()
    {
        if (used_ == chunks_.size() * kChunk)
            chunks_.push_back(std::make_unique<Item[]>(kChunk));
        Item *it = &chunks_[used_ / kChunk][used_ % kChunk];
        ++used_;
        *it = Item{};
        it->persistent = persistent_;
        return it;
    }
    void reset() { used_ = 0; }

private:
    static constexpr size_t kChunk = 256;
    std::vector<std::unique_ptr<Item[]>> chunks_;
    size_t used_ = 0;
    bool persistent_;
};

/* Tokenises `text` and folds the items into a tree; returns the root, or
 * null for a text without items. */
Item *buildTree(std::string_view text, Arena &arena);

/* Spelling of an operator code ("^" for a power, the name for a function). */
const char *opSpelling(int op);

} // namespace zu_units

#endif
