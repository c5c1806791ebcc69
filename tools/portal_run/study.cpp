// Reading a study file. The reader is strict: an unknown key, a value of the
// wrong type or a missing file is an error naming the file, the line and the
// key, because a typo that silently falls back to a default would run a whole
// study with the wrong setup.
#include "study.h"

#include <toml++/toml.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <set>
#include <sstream>

namespace portalrun {

namespace fs = std::filesystem;

namespace {

// Refuses ranges that would make absurd numbers of values before any memory
// is spent on them.
constexpr double kMaxRangeValues = 1e6;

class Reader {
public:
    Reader(std::string file, std::string dir) : file_(std::move(file)), dir_(std::move(dir)) {}

    [[noreturn]] void fail(const toml::node* at, const std::string& where,
                           const std::string& what) const {
        std::ostringstream m;
        m << file_;
        if (at && at->source().begin.line) m << ":" << at->source().begin.line;
        m << ": ";
        if (!where.empty()) m << where << ": ";
        m << what;
        throw StudyError(m.str());
    }

    void checkKeys(const toml::table& t, const std::string& where,
                   std::initializer_list<const char*> allowed) const {
        for (auto&& [key, node] : t) {
            bool known = false;
            std::string list;
            for (const char* a : allowed) {
                known = known || key.str() == a;
                list += list.empty() ? "" : ", ";
                list += a;
            }
            if (!known)
                fail(&node, where, "unknown key '" + std::string(key.str()) + "' (known: " + list + ")");
        }
    }

    std::optional<std::string> string(const toml::table& t, const char* key,
                                      const std::string& where) const {
        const toml::node* n = t.get(key);
        if (!n) return std::nullopt;
        if (!n->is_string()) fail(n, where, std::string("'") + key + "' must be a string");
        return n->as_string()->get();
    }

    std::string required(const toml::table& t, const char* key, const std::string& where) const {
        auto s = string(t, key, where);
        if (!s) fail(&t, where, std::string("missing key '") + key + "'");
        if (s->empty()) fail(t.get(key), where, std::string("'") + key + "' is empty");
        return *s;
    }

    std::optional<double> number(const toml::table& t, const char* key,
                                 const std::string& where) const {
        const toml::node* n = t.get(key);
        if (!n) return std::nullopt;
        if (!n->is_number()) fail(n, where, std::string("'") + key + "' must be a number");
        double v = n->value<double>().value_or(0.0);
        if (!std::isfinite(v)) fail(n, where, std::string("'") + key + "' must be finite");
        return v;
    }

    std::optional<long long> integer(const toml::table& t, const char* key,
                                     const std::string& where) const {
        const toml::node* n = t.get(key);
        if (!n) return std::nullopt;
        if (!n->is_integer()) fail(n, where, std::string("'") + key + "' must be an integer");
        return n->as_integer()->get();
    }

    const toml::table* table(const toml::table& t, const char* key) const {
        const toml::node* n = t.get(key);
        if (!n) return nullptr;
        if (!n->is_table())
            fail(n, "", std::string("'") + key + "' must be a table: write [" + key + "]");
        return n->as_table();
    }

    std::vector<const toml::table*> tables(const toml::table& t, const char* key) const {
        std::vector<const toml::table*> out;
        const toml::node* n = t.get(key);
        if (!n) return out;
        const toml::array* a = n->as_array();
        if (!a || !a->is_array_of_tables())
            fail(n, "", std::string("'") + key + "' must be a list of tables: write [[" + key + "]]");
        for (const toml::node& e : *a) out.push_back(e.as_table());
        return out;
    }

    // A scalar as the host gives settings and properties: as text.
    std::string scalarText(const toml::node& n, const std::string& where,
                           const std::string& key) const {
        if (auto s = n.as_string()) return s->get();
        if (auto b = n.as_boolean()) return b->get() ? "true" : "false";
        if (auto i = n.as_integer()) return std::to_string(i->get());
        if (auto f = n.as_floating_point()) {
            std::ostringstream o;
            o.precision(17);
            o << f->get();
            return o.str();
        }
        fail(&n, where, "'" + key + "' must be a string, a number or a boolean");
    }

    std::string path(const std::string& p) const {
        fs::path fp(p);
        if (fp.is_relative()) fp = fs::path(dir_) / fp;
        return fp.lexically_normal().string();
    }

    const std::string& file() const { return file_; }

private:
    std::string file_;
    std::string dir_;
};

Value toValue(const Reader& r, const toml::node& n, ParamType type, const std::string& where) {
    switch (type) {
        case ParamType::Text:
            if (!n.is_string()) r.fail(&n, where, "values of a string parameter must be strings");
            return Value::ofText(n.as_string()->get());
        case ParamType::Integer: {
            if (n.is_integer()) return Value::ofInteger(n.as_integer()->get());
            double d = n.value<double>().value_or(NAN);
            if (n.is_floating_point() && std::isfinite(d) && d == std::trunc(d) &&
                std::fabs(d) < 9e18)
                return Value::ofInteger(static_cast<long long>(d));
            r.fail(&n, where, "values of an integer parameter must be whole numbers");
        }
        case ParamType::Real:
            if (!n.is_number()) r.fail(&n, where, "values of a real parameter must be numbers");
            if (!std::isfinite(n.value<double>().value_or(NAN)))
                r.fail(&n, where, "values must be finite");
            return Value::ofReal(n.value<double>().value_or(0.0));
    }
    return {};
}

// Digits after the point in the shortest text of v written without an
// exponent: 1 for 0.1, 7 for 1e-07, 0 for 250.
int decimalPlaces(double v) {
    char buf[400];
    auto res = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed);
    if (res.ec != std::errc()) return 0;
    const std::string_view text(buf, static_cast<std::size_t>(res.ptr - buf));
    const auto dot = text.find('.');
    return dot == std::string_view::npos ? 0 : static_cast<int>(text.size() - dot - 1);
}

// A range's value on the grid of the decimals its start and step were
// written with: from 0 by 0.1, the third value is 0.3 and not
// 0.30000000000000004. Values not within rounding of that grid stay as
// computed.
double onDecimalGrid(double v, int places, double step) {
    char buf[400];
    auto res = std::to_chars(buf, buf + sizeof buf - 1, v, std::chars_format::fixed, places);
    if (res.ec != std::errc()) return v;
    *res.ptr = '\0';
    const double snapped = std::strtod(buf, nullptr);
    return std::fabs(snapped - v) <= 1e-9 * std::fabs(step) ? snapped : v;
}

void readRange(const Reader& r, const toml::table& t, Parameter& p, const std::string& where) {
    if (p.type == ParamType::Text) r.fail(&t, where, "a range needs a real or integer parameter");
    auto from = r.number(t, "from", where), to = r.number(t, "to", where);
    if (!from || !to) r.fail(&t, where, "a range needs both 'from' and 'to'");
    auto step = r.number(t, "step", where);
    auto count = r.integer(t, "count", where);
    if (step.has_value() == count.has_value())
        r.fail(&t, where, "a range needs exactly one of 'step' and 'count'");
    double span = *to - *from;
    double n;
    if (count) {
        if (*count < 1) r.fail(t.get("count"), where, "'count' must be at least 1");
        if (*count == 1 && span != 0) r.fail(t.get("count"), where, "'count' = 1 needs 'from' = 'to'");
        n = static_cast<double>(*count);
        step = *count == 1 ? 0.0 : span / static_cast<double>(*count - 1);
    } else {
        if (*step == 0) r.fail(t.get("step"), where, "'step' must not be 0");
        if (span != 0 && (span > 0) != (*step > 0))
            r.fail(t.get("step"), where, "'step' goes away from 'to'");
        n = std::floor(span / *step + 1e-9) + 1;
    }
    if (n > kMaxRangeValues) r.fail(&t, where, "the range has more than a million values");
    const int places = std::max(decimalPlaces(*from), decimalPlaces(*step));
    const double parts = count && *count > 1 ? static_cast<double>(*count - 1) : 0.0;
    for (long long k = 0; k < static_cast<long long>(n); ++k) {
        // From the start each time, so that rounding can't add up; by count
        // the span is divided last, which is exact where it can be.
        const auto i = static_cast<double>(k);
        double v = parts > 0 ? *from + span * i / parts : *from + i * *step;
        v = onDecimalGrid(v, places, *step);
        if (k == static_cast<long long>(n) - 1 && std::fabs(v - *to) <= 1e-9 * std::fabs(*step))
            v = *to;  // the end the user wrote, not one off by rounding
        if (p.type == ParamType::Integer) {
            if (v != std::trunc(v))
                r.fail(&t, where, "an integer range needs whole 'from', 'to' and 'step'");
            p.values.push_back(Value::ofInteger(static_cast<long long>(v)));
        } else {
            p.values.push_back(Value::ofReal(v));
        }
    }
}

Parameter readParameter(const Reader& r, const toml::table& t, std::size_t index) {
    std::string where = "parameter " + std::to_string(index + 1);
    r.checkKeys(t, where,
                {"name", "type", "value", "values", "from", "to", "step", "count", "min", "max"});
    Parameter p;
    p.name = r.required(t, "name", where);
    where = "parameter '" + p.name + "'";
    const toml::node* value = t.get("value");
    const toml::array* values = t.get("values") ? t.get("values")->as_array() : nullptr;
    if (t.get("values") && (!values || values->empty()))
        r.fail(t.get("values"), where, "'values' must be a non-empty array");
    const bool range = t.get("from") || t.get("to") || t.get("step") || t.get("count");
    const bool bounds = t.get("min") || t.get("max");
    if ((value != nullptr) + (values != nullptr) + range + bounds != 1)
        r.fail(&t, where, "give exactly one of 'value', 'values', 'from'/'to' or 'min'/'max'");

    if (auto type = r.string(t, "type", where)) {
        if (*type == "real") p.type = ParamType::Real;
        else if (*type == "integer") p.type = ParamType::Integer;
        else if (*type == "string") p.type = ParamType::Text;
        else r.fail(t.get("type"), where, "unknown type '" + *type + "' (real, integer or string)");
    } else {
        const toml::node* first = value ? value : values ? values->get(0) : nullptr;
        p.type = first && first->is_string() ? ParamType::Text : ParamType::Real;
    }

    if (value) p.values.push_back(toValue(r, *value, p.type, where));
    if (values)
        for (const toml::node& n : *values) p.values.push_back(toValue(r, n, p.type, where));
    if (range) readRange(r, t, p, where);
    if (bounds) {
        if (p.type == ParamType::Text) r.fail(&t, where, "'min'/'max' need a real or integer parameter");
        auto lo = r.number(t, "min", where), hi = r.number(t, "max", where);
        if (!lo || !hi) r.fail(&t, where, "give both 'min' and 'max'");
        if (*lo > *hi) r.fail(t.get("min"), where, "'min' is above 'max'");
        if (p.type == ParamType::Integer && (*lo != std::trunc(*lo) || *hi != std::trunc(*hi)))
            r.fail(&t, where, "an integer parameter needs whole 'min' and 'max'");
        p.bounded = true;
        p.min = *lo;
        p.max = *hi;
    }
    return p;
}

// Tag file names tell the portal which module reads them; a wrong prefix
// would be dropped silently at run time, so it is refused here.
void checkTagName(const Reader& r, const toml::table& t, const std::string& tags, bool input,
                  const std::string& where) {
    const std::string base = fs::path(tags).filename().string();
    const std::string dir = input ? "in_" : "out_";
    for (const char* owner : {"M_", "X_", "S_", "P_"})
        if (base.rfind(owner + dir, 0) == 0) return;
    r.fail(t.get("tags"), where,
           "tag file '" + base + "' must be named M_" + dir + "..., X_" + dir + "..., S_" + dir +
               "... or P_" + dir + "...");
}

std::vector<FileSpec> readFiles(const Reader& r, const toml::table& root, bool input,
                                bool tagsMayBeMissing) {
    const char* key = input ? "inputs" : "outputs";
    std::vector<FileSpec> out;
    std::set<std::string> names;
    auto list = r.tables(root, key);
    for (std::size_t i = 0; i < list.size(); ++i) {
        const toml::table& t = *list[i];
        std::string where = std::string(input ? "input " : "output ") + std::to_string(i + 1);
        r.checkKeys(t, where, {"file", "tags"});
        FileSpec f;
        f.file = r.required(t, "file", where);
        where = std::string(input ? "input '" : "output '") + f.file + "'";
        if (input) {
            f.file = r.path(f.file);
            if (!fs::is_regular_file(f.file)) r.fail(t.get("file"), where, "no such file: " + f.file);
        }
        // Inputs land in the run folder under their own name: two with one
        // name would overwrite each other.
        const std::string name = input ? fs::path(f.file).filename().string()
                                       : fs::path(f.file).lexically_normal().string();
        if (!names.insert(name).second) r.fail(&t, where, "a second file named '" + name + "'");
        if (auto tags = r.string(t, "tags", where); tags && !tags->empty()) {
            checkTagName(r, t, *tags, input, where);
            f.tags = r.path(*tags);
            if (!tagsMayBeMissing && !fs::is_regular_file(f.tags)) r.fail(t.get("tags"), where, "no such tag file: " + f.tags);
        }
        out.push_back(std::move(f));
    }
    return out;
}

void readSolver(const Reader& r, const toml::table& root, Study& s) {
    const toml::table* t = r.table(root, "solver");
    if (!t) r.fail(nullptr, "", "missing table [solver] with the solver's 'command'");
    r.checkKeys(*t, "[solver]", {"command", "time_limit", "kill_grace"});
    s.command = r.required(*t, "command", "[solver]");
    s.timeLimit = r.number(*t, "time_limit", "[solver]").value_or(0.0);
    s.killGrace = r.number(*t, "kill_grace", "[solver]").value_or(2.0);
    if (s.timeLimit < 0) r.fail(t->get("time_limit"), "[solver]", "'time_limit' must not be negative");
    if (s.killGrace < 0) r.fail(t->get("kill_grace"), "[solver]", "'kill_grace' must not be negative");
}

void readDesign(const Reader& r, const toml::table& root, Study& s) {
    const toml::table* t = r.table(root, "design");
    if (!t) return;
    r.checkKeys(*t, "[design]", {"method", "samples", "seed"});
    const std::string method = r.string(*t, "method", "[design]").value_or("grid");
    if (method == "grid") s.method = Method::Grid;
    else if (method == "list") s.method = Method::List;
    else if (method == "lhs") s.method = Method::Lhs;
    else r.fail(t->get("method"), "[design]", "unknown method '" + method + "' (grid, list or lhs)");
    auto samples = r.integer(*t, "samples", "[design]");
    auto seed = r.integer(*t, "seed", "[design]");
    if (s.method != Method::Lhs && (samples || seed))
        r.fail(t->get(samples ? "samples" : "seed"), "[design]",
               "'samples' and 'seed' belong to method \"lhs\"");
    if (s.method == Method::Lhs) {
        if (!samples) r.fail(t, "[design]", "method \"lhs\" needs 'samples'");
        if (*samples < 1 || *samples > 1000000)
            r.fail(t->get("samples"), "[design]", "'samples' must be from 1 to 1000000");
        if (seed && *seed < 0) r.fail(t->get("seed"), "[design]", "'seed' must not be negative");
        s.samples = *samples;
        s.seed = static_cast<std::uint64_t>(seed.value_or(1));
    }
}

// sbatch options portal-run sets itself: one given again would send the
// tasks' output or designs elsewhere than the runner looks for them.
bool runnerOwnsOption(const std::string& option) {
    for (const char* own : {"--array", "-a", "--output", "-o", "--error", "-e", "--parsable",
                            "--wrap", "--job-name", "-J", "--chdir", "-D", "--wait", "-W"}) {
        const std::string o = own;
        if (option == o || option.rfind(o + "=", 0) == 0) return true;
        if (o.size() == 2 && option.size() > 2 && option.rfind(o, 0) == 0) return true;
    }
    return false;
}

// Digits joined by ':' into at most three fields, none empty.
bool isClockFields(std::string_view text) {
    int fields = 1;
    bool digit = false;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            digit = true;
        } else if (c == ':' && digit && fields < 3) {
            ++fields;
            digit = false;
        } else {
            return false;
        }
    }
    return digit;
}

// sbatch's time forms: M, M:S, H:M:S, D-H, D-H:M, D-H:M:S, or no limit.
bool isSlurmTime(const std::string& text) {
    if (text == "UNLIMITED" || text == "INFINITE" || text == "unlimited" || text == "infinite") return true;
    const auto dash = text.find('-');
    if (dash == std::string::npos) return isClockFields(text);
    const std::string_view days(text.data(), dash);
    return !days.empty() && days.find_first_not_of("0123456789") == std::string_view::npos &&
           isClockFields(std::string_view(text).substr(dash + 1));
}

// A whole number of megabytes, or with one of the units K, M, G, T.
bool isSlurmMemory(const std::string& text) {
    const auto end = text.find_first_not_of("0123456789");
    if (end == 0) return false;
    return end == std::string::npos ||
           (end + 1 == text.size() && std::string_view("KMGTkmgt").find(text[end]) != std::string_view::npos);
}

// A value that sbatch takes as text, also given as a whole number of units.
std::optional<std::string> sbatchValue(const Reader& r, const toml::table& t, const char* key,
                                       bool (*valid)(const std::string&), const char* what) {
    const toml::node* n = t.get(key);
    if (!n) return std::nullopt;
    std::string text;
    if (auto i = n->as_integer()) {
        if (i->get() < 1) r.fail(n, "[scheduler]", std::string("'") + key + "' must be at least 1");
        text = std::to_string(i->get());
    } else if (auto s = n->as_string()) {
        text = s->get();
    } else {
        r.fail(n, "[scheduler]", std::string("'") + key + "' must be a string or an integer");
    }
    if (!valid(text))
        r.fail(n, "[scheduler]", std::string("'") + key + "' = \"" + text + "\" is not " + what);
    return text;
}

void readScheduler(const Reader& r, const toml::table& root, Study& s) {
    const toml::table* t = r.table(root, "scheduler");
    if (!t) return;
    const char* where = "[scheduler]";
    r.checkKeys(*t, where, {"type", "partition", "time", "cpus", "memory", "sbatch_options"});
    const std::string type = r.string(*t, "type", where).value_or("local");
    if (type == "local") s.scheduler = SchedulerKind::Local;
    else if (type == "slurm") s.scheduler = SchedulerKind::Slurm;
    else r.fail(t->get("type"), where, "unknown type '" + type + "' (local or slurm)");
    s.slurm.partition = r.string(*t, "partition", where).value_or("");
    if (s.slurm.partition.find_first_of(" \t\n") != std::string::npos)
        r.fail(t->get("partition"), where, "'partition' must be one name");
    s.slurm.time = sbatchValue(r, *t, "time", isSlurmTime,
                               "a Slurm time (minutes, MM:SS, HH:MM:SS, D-HH:MM)").value_or("");
    s.slurm.memory =
        sbatchValue(r, *t, "memory", isSlurmMemory, "a size (megabytes, or with K, M, G or T)")
            .value_or("");
    if (auto cpus = r.integer(*t, "cpus", where)) {
        if (*cpus < 1 || *cpus > 100000) r.fail(t->get("cpus"), where, "'cpus' must be from 1 to 100000");
        s.slurm.cpus = static_cast<int>(*cpus);
    }
    if (const toml::node* n = t->get("sbatch_options")) {
        const toml::array* a = n->as_array();
        if (!a) r.fail(n, where, "'sbatch_options' must be an array of strings");
        for (const toml::node& o : *a) {
            if (!o.is_string()) r.fail(&o, where, "'sbatch_options' must be an array of strings");
            const std::string option = o.as_string()->get();
            if (option.empty() || option[0] != '-')
                r.fail(&o, where, "sbatch option '" + option + "' must begin with '-' (one option per string, as --name=value)");
            if (runnerOwnsOption(option))
                r.fail(&o, where, "sbatch option '" + option + "' is set by portal-run itself");
            s.slurm.options.push_back(option);
        }
    }
}

void readTexts(const Reader& r, const toml::table& root, Study& s) {
    if (const toml::table* t = r.table(root, "settings"))
        for (auto&& [k, v] : *t)
            s.settings[std::string(k.str())] = r.scalarText(v, "[settings]", std::string(k.str()));
    if (const toml::table* t = r.table(root, "properties")) {
        for (auto&& [group, node] : *t) {
            const std::string where = "[properties." + std::string(group.str()) + "]";
            if (!node.is_table()) r.fail(&node, where, "must be a table of key = value");
            auto& g = s.properties[std::string(group.str())];
            for (auto&& [k, v] : *node.as_table())
                g[std::string(k.str())] = r.scalarText(v, where, std::string(k.str()));
        }
    }
}

// Columns of results.csv besides the parameters and responses.
bool reservedName(const std::string& name) {
    return name == "design" || name == "status" || name == "reason";
}

const char* const kReserved =
    "is a column of results.csv of its own (design, status and reason are taken)";

void readResponses(const Reader& r, const toml::table& root, Study& s) {
    std::set<std::string> names;
    auto list = r.tables(root, "responses");
    for (std::size_t i = 0; i < list.size(); ++i) {
        std::string where = "response " + std::to_string(i + 1);
        r.checkKeys(*list[i], where, {"name", "type"});
        Response resp;
        resp.name = r.required(*list[i], "name", where);
        where = "response '" + resp.name + "'";
        const std::string type = r.string(*list[i], "type", where).value_or("numeric");
        if (type != "numeric" && type != "text")
            r.fail(list[i]->get("type"), where, "unknown type '" + type + "' (numeric or text)");
        resp.numeric = type == "numeric";
        if (!names.insert(resp.name).second) r.fail(list[i], where, "defined twice");
        if (reservedName(resp.name)) r.fail(list[i], where, kReserved);
        for (const Parameter& p : s.parameters)
            if (p.name == resp.name)
                r.fail(list[i], where,
                       "a parameter (line " + std::to_string(p.line) +
                           ") has the same name; results.csv needs a column for each");
        s.responses.push_back(resp);
    }
}

Study build(const toml::table& root, const std::string& path, bool tagsMayBeMissing = false) {
    Study s;
    s.path = fs::absolute(path).lexically_normal().string();
    s.dir = fs::path(s.path).parent_path().string();
    s.file = path;
    Reader r(path, s.dir);
    r.checkKeys(root, "", {"study", "solver", "design", "parameters", "inputs", "outputs",
                           "responses", "settings", "properties", "scheduler"});
    s.name = fs::path(path).stem().string();
    std::string runs = "runs";
    if (const toml::table* t = r.table(root, "study")) {
        r.checkKeys(*t, "[study]", {"name", "runs", "portal", "version"});
        s.name = r.string(*t, "name", "[study]").value_or(s.name);
        runs = r.string(*t, "runs", "[study]").value_or(runs);
        s.portal = r.string(*t, "portal", "[study]").value_or(s.portal);
        s.version = r.string(*t, "version", "[study]").value_or(s.version);
        if (s.name.empty() || s.name.find_first_of("/\n") != std::string::npos)
            r.fail(t->get("name"), "[study]", "'name' must be a non-empty name without '/'");
        if (runs.empty()) r.fail(t->get("runs"), "[study]", "'runs' is empty");
    }
    s.runs = r.path(runs);
    readSolver(r, root, s);
    readDesign(r, root, s);
    readScheduler(r, root, s);

    std::set<std::string> names;
    auto params = r.tables(root, "parameters");
    for (std::size_t i = 0; i < params.size(); ++i) {
        Parameter p = readParameter(r, *params[i], i);
        p.line = static_cast<int>(params[i]->source().begin.line);
        if (!names.insert(p.name).second)
            r.fail(params[i], "parameter '" + p.name + "'", "defined twice");
        if (reservedName(p.name)) r.fail(params[i], "parameter '" + p.name + "'", kReserved);
        if (p.bounded && s.method != Method::Lhs)
            r.fail(params[i], "parameter '" + p.name + "'", "'min'/'max' need method = \"lhs\"");
        s.parameters.push_back(std::move(p));
    }
    s.inputs = readFiles(r, root, true, tagsMayBeMissing);
    s.outputs = readFiles(r, root, false, tagsMayBeMissing);
    readResponses(r, root, s);
    readTexts(r, root, s);
    return s;
}

std::string parseErrorText(const std::string& path, const toml::parse_error& e) {
    std::ostringstream m;
    m << path << ":" << e.source().begin.line << ":" << e.source().begin.column
      << ": not valid TOML: " << e.description();
    return m.str();
}

}  // namespace

Study parseStudy(std::string_view text, const std::string& path) {
    toml::table root;
    try {
        root = toml::parse(text, path);
    } catch (const toml::parse_error& e) {
        throw StudyError(parseErrorText(path, e));
    }
    return build(root, path);
}

Study loadStudy(const std::string& path, bool tagsMayBeMissing) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) throw StudyError(path + ": no such study file");
    toml::table root;
    try {
        root = toml::parse_file(path);
    } catch (const toml::parse_error& e) {
        throw StudyError(parseErrorText(path, e));
    }
    return build(root, path, tagsMayBeMissing);
}

}  // namespace portalrun
