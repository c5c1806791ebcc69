/*
 * zu_units_file.cpp - the units file format: entries
 *     name = definition ;        name = definition | pretty ;
 * read byte by byte. White space is dropped, except behind a '>' (a
 * rejection hint), where it is kept up to the ';'. '=' ends the name, '|'
 * ends the definition and starts the display form, ';' ends the entry; a
 * last entry without ';' still counts. There are no comments, and an entry
 * without a name is dropped (nothing could ever refer to it).
 */
#include "zu_units_file.h"

#include <cctype>
#include <cstdio>

namespace {

int readAllReal(const char *path, std::string *bytes)
{
    FILE *f = fopen(path, "rb");
    if (!f)
        return 1;
    char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        bytes->append(buf, n);
    int bad = ferror(f);
    fclose(f);
    return bad ? 2 : 0;
}

} // namespace

ZU_UnitsIo zu_unitsIo = {readAllReal};

namespace zu_units {

namespace {

struct Entry {
    std::string field[3]; /* name, definition, pretty */
    int at = 0;
    bool pretty = false;
    bool keepSpace = false;
    bool empty() const { return field[0].empty() && field[1].empty() && field[2].empty() && at == 0; }
};

void finish(Entry &e, UnitsFile &out)
{
    if (!e.field[0].empty()) {
        const char *name = out.texts.emplace_back(e.field[0]).c_str();
        const char *def = out.texts.emplace_back(e.field[1]).c_str();
        out.rows.push_back({name, def});
        if (e.pretty)
            out.pairs.push_back({name, out.texts.emplace_back(e.field[2]).c_str()});
    }
    e = Entry{};
}

} // namespace

void parseUnitsText(const std::string &bytes, UnitsFile &out)
{
    Entry e;
    for (char c : bytes) {
        if (c == ';') {
            finish(e, out);
            continue;
        }
        if (c == '>')
            e.keepSpace = true;
        if (!e.keepSpace && isspace(static_cast<unsigned char>(c)))
            continue;
        if (c == '=' && e.at == 0) {
            e.at = 1;
            continue;
        }
        if (c == '|' && e.at == 1) {
            e.at = 2;
            e.pretty = true;
            continue;
        }
        e.field[e.at] += c;
    }
    if (!e.empty())
        finish(e, out);
}

int readUnitsFile(const char *path, UnitsFile &out)
{
    std::string bytes;
    out.path = path;
    switch (zu_unitsIo.readAll(path, &bytes)) {
    case 0:
        parseUnitsText(bytes, out);
        return 0;
    case 1:
        return ZU_UNIT_FILE_OPEN;
    default:
        return ZU_UNIT_FILE_READ;
    }
}

} // namespace zu_units
