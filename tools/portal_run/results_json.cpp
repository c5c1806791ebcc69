// Writing and reading results.json. The writer builds the document from the
// runner's own state (designs with their exact parameter values, records with
// their response texts); the reader checks every field it uses, so status and
// report either see a whole, well-formed file or say which field is wrong.
#include "results_json.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

namespace portalrun {

namespace fs = std::filesystem;
using ojson = nlohmann::ordered_json;

namespace {

const char* paramTypeName(ParamType t) {
    switch (t) {
        case ParamType::Integer: return "integer";
        case ParamType::Text: return "text";
        case ParamType::Real: break;
    }
    return "real";
}

std::string numberText(double v) { return valueText(Value::ofReal(v)); }

// A number, or null with its text noted when JSON can't hold it.
ojson finiteOrNull(double v, std::string& note, const std::string& where) {
    if (std::isfinite(v)) return v;
    if (!note.empty()) note += ", ";
    note += where + numberText(v);
    return nullptr;
}

ojson parameterJson(const Value& v, std::string& note) {
    switch (v.kind) {
        case Value::Kind::Text: return v.text;
        case Value::Kind::Integer: return v.integer;
        case Value::Kind::Real: break;
    }
    return finiteOrNull(v.real, note, "");
}

ojson responseJson(const std::string& text, bool numeric, std::string& note) {
    if (text.empty()) return nullptr;
    std::vector<double> numbers;
    if (!numeric || !responseNumbers(text, numbers)) return text;
    if (numbers.size() == 1) return finiteOrNull(numbers[0], note, "");
    ojson a = ojson::array();
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        std::string where = "[";
        where += std::to_string(i);
        where += "] ";
        a.push_back(finiteOrNull(numbers[i], note, where));
    }
    return a;
}

ojson designJson(const JsonInput& in, std::size_t i) {
    const Study& study = *in.study;
    const Design& d = (*in.designs)[i];
    const DesignResult* r =
        i < in.results->size() && (*in.results)[i] ? &*(*in.results)[i] : nullptr;
    const bool running = !r && i < in.started.size() && in.started[i];
    ojson nonfinite = ojson::object();
    ojson params = ojson::object();
    for (std::size_t p = 0; p < study.parameters.size() && p < d.values.size(); ++p) {
        std::string note;
        params[study.parameters[p].name] = parameterJson(d.values[p], note);
        if (!note.empty()) nonfinite[study.parameters[p].name] = note;
    }
    ojson responses = ojson::object();
    for (const Response& resp : study.responses) {
        std::string note;
        auto it = r ? r->responses.find(resp.name) : std::map<std::string, std::string>::const_iterator{};
        responses[resp.name] =
            r && it != r->responses.end() ? responseJson(it->second, resp.numeric, note) : ojson(nullptr);
        if (!note.empty()) nonfinite[resp.name] = note;
    }
    ojson e = {{"design", d.number},
               {"status", r ? r->status : running ? "running" : "pending"},
               {"reason", r ? r->reason : ""},
               {"seconds", r ? ojson(r->seconds) : ojson(nullptr)}};
    if (running) e["started"] = *in.started[i];
    e["parameters"] = std::move(params);
    e["responses"] = std::move(responses);
    e["messages"] = r ? ojson(r->messages) : ojson::array();
    if (!nonfinite.empty()) e["nonfinite"] = std::move(nonfinite);
    return e;
}

// Field checks for the reader: each throws a message that names the field.
struct Bad : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const nlohmann::json& field(const nlohmann::json& obj, const char* key, const std::string& where) {
    auto it = obj.find(key);
    if (it == obj.end()) throw Bad(where + "." + key + " is missing");
    return *it;
}

std::string textField(const nlohmann::json& obj, const char* key, const std::string& where) {
    const auto& v = field(obj, key, where);
    if (!v.is_string()) throw Bad(where + "." + key + " must be a string");
    return v.get<std::string>();
}

double numberField(const nlohmann::json& obj, const char* key, const std::string& where) {
    const auto& v = field(obj, key, where);
    if (!v.is_number()) throw Bad(where + "." + key + " must be a number");
    return v.get<double>();
}

long long integerField(const nlohmann::json& obj, const char* key, const std::string& where,
                       long long min, long long max) {
    const double v = numberField(obj, key, where);
    if (v != std::floor(v) || v < static_cast<double>(min) || v > static_cast<double>(max))
        throw Bad(where + "." + key + " must be a whole number from " + std::to_string(min) +
                  " to " + std::to_string(max));
    return static_cast<long long>(v);
}

std::optional<double> optionalNumber(const nlohmann::json& obj, const char* key,
                                     const std::string& where) {
    auto it = obj.find(key);
    if (it == obj.end() || it->is_null()) return std::nullopt;
    if (!it->is_number()) throw Bad(where + "." + key + " must be a number or null");
    return it->get<double>();
}

Cell cellOf(const nlohmann::json& v, const std::string& where) {
    Cell c;
    if (v.is_null()) return c;
    if (v.is_number()) {
        c.kind = Cell::Kind::Number;
        c.number = v.get<double>();
    } else if (v.is_string()) {
        c.kind = Cell::Kind::Text;
        c.text = v.get<std::string>();
    } else if (v.is_array()) {
        c.kind = Cell::Kind::Array;
        for (const auto& x : v) {
            if (x.is_null()) c.array.emplace_back();
            else if (x.is_number()) c.array.emplace_back(x.get<double>());
            else throw Bad(where + " may hold only numbers and null");
        }
    } else {
        throw Bad(where + " must be a number, a text, an array or null");
    }
    return c;
}

std::vector<Column> columnsOf(const nlohmann::json& top, const char* key) {
    const auto& a = field(top, key, "results");
    if (!a.is_array()) throw Bad(std::string("results.") + key + " must be an array");
    std::vector<Column> out;
    for (const auto& c : a) {
        const std::string where = std::string("results.") + key + "[" + std::to_string(out.size()) + "]";
        if (!c.is_object()) throw Bad(where + " must be an object");
        out.push_back({textField(c, "name", where), textField(c, "type", where)});
    }
    return out;
}

std::vector<Cell> cellsOf(const nlohmann::json& e, const char* key, const std::vector<Column>& cols,
                          const std::string& where) {
    const auto& obj = field(e, key, where);
    if (!obj.is_object()) throw Bad(where + "." + key + " must be an object");
    std::vector<Cell> out;
    for (const Column& c : cols) {
        auto it = obj.find(c.name);
        out.push_back(it == obj.end() ? Cell{} : cellOf(*it, where + "." + key + "." + c.name));
    }
    return out;
}

DesignEntry entryOf(const nlohmann::json& e, const ResultsFile& f, const std::string& where) {
    if (!e.is_object()) throw Bad(where + " must be an object");
    DesignEntry d;
    d.design = static_cast<int>(integerField(e, "design", where, 1, kMaxDesigns));
    d.status = textField(e, "status", where);
    if (d.status != "ok" && d.status != "failed" && d.status != "running" && d.status != "pending")
        throw Bad(where + ".status must be ok, failed, running or pending, not '" + d.status + "'");
    d.reason = textField(e, "reason", where);
    d.seconds = optionalNumber(e, "seconds", where);
    d.started = optionalNumber(e, "started", where);
    d.parameters = cellsOf(e, "parameters", f.parameters, where);
    d.responses = cellsOf(e, "responses", f.responses, where);
    const auto& msgs = field(e, "messages", where);
    if (!msgs.is_array()) throw Bad(where + ".messages must be an array");
    for (const auto& m : msgs) {
        if (!m.is_string()) throw Bad(where + ".messages must hold texts");
        d.messages.push_back(m.get<std::string>());
    }
    if (auto it = e.find("nonfinite"); it != e.end()) {
        if (!it->is_object()) throw Bad(where + ".nonfinite must be an object");
        for (const auto& [k, v] : it->items()) {
            if (!v.is_string()) throw Bad(where + ".nonfinite." + k + " must be a text");
            d.nonfinite[k] = v.get<std::string>();
        }
    }
    return d;
}

}  // namespace

bool responseNumbers(const std::string& text, std::vector<double>& out) {
    out.clear();
    std::size_t from = 0;
    for (;;) {
        const std::size_t end = std::min(text.find(';', from), text.size());
        const std::string part = text.substr(from, end - from);
        char* stop = nullptr;
        errno = 0;
        const double v = std::strtod(part.c_str(), &stop);
        // strtod skips leading blanks; a part must be the number alone.
        if (part.empty() || std::isspace(static_cast<unsigned char>(part[0])) || *stop) return false;
        out.push_back(v);
        if (end == text.size()) return true;
        from = end + 1;
    }
}

std::string resultsJsonText(const JsonInput& in) {
    ojson params = ojson::array();
    for (const Parameter& p : in.study->parameters)
        params.push_back({{"name", p.name}, {"type", paramTypeName(p.type)}});
    ojson resps = ojson::array();
    for (const Response& r : in.study->responses)
        resps.push_back({{"name", r.name}, {"type", r.numeric ? "numeric" : "text"}});
    ojson designs = ojson::array();
    for (std::size_t i = 0; i < in.designs->size(); ++i) designs.push_back(designJson(in, i));
    ojson top = {{"format", kResultsJsonFormat},
                 {"study", in.study->name},
                 {"study_file", in.study->path},
                 {"runner", {{"pid", in.runner.pid},
                             {"host", in.runner.host},
                             {"jobs", in.runner.jobs},
                             {"state", in.runner.state}}},
                 {"updated", in.now},
                 {"parameters", std::move(params)},
                 {"responses", std::move(resps)},
                 {"designs", std::move(designs)}};
    // A solver's message need not be UTF-8: a stray byte becomes U+FFFD
    // rather than costing the whole file.
    return top.dump(1, ' ', false, ojson::error_handler_t::replace) + "\n";
}

bool writeFileDurably(const std::string& path, const std::string& text, std::string& error) {
    const std::string temp = path + ".tmp";
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = "cannot write " + temp + ": " + std::strerror(errno);
        return false;
    }
    bool ok = true;
    for (std::size_t off = 0; ok && off < text.size();) {
        const ssize_t n = ::write(fd, text.data() + off, text.size() - off);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) ok = false;
        else off += static_cast<std::size_t>(n);
    }
    if (ok && ::fsync(fd) != 0) ok = false;
    const int savedErrno = errno;
    if (::close(fd) != 0) ok = false;
    if (!ok) {
        error = "cannot write " + temp + ": " + std::strerror(savedErrno ? savedErrno : errno);
        ::unlink(temp.c_str());
        return false;
    }
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        error = "cannot rename " + temp + " to " + path + ": " + std::strerror(errno);
        ::unlink(temp.c_str());
        return false;
    }
    // The rename itself reaches the disk with the folder.
    const std::string folder = fs::path(path).parent_path().string();
    const int dfd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

bool parseResultsJson(const std::string& text, const std::string& name, ResultsFile& out,
                      std::string& error) {
    nlohmann::json top;
    try {
        top = nlohmann::json::parse(text);
    } catch (const nlohmann::json::parse_error& e) {
        error = name + " is not whole JSON: " + e.what();
        return false;
    }
    try {
        if (!top.is_object()) throw Bad("results must be an object");
        if (textField(top, "format", "results") != kResultsJsonFormat)
            throw Bad("results.format is not '" + std::string(kResultsJsonFormat) + "'");
        ResultsFile f;
        f.study = textField(top, "study", "results");
        f.studyFile = textField(top, "study_file", "results");
        const auto& runner = field(top, "runner", "results");
        if (!runner.is_object()) throw Bad("results.runner must be an object");
        f.runner.pid = integerField(runner, "pid", "results.runner", 0, 1LL << 40);
        f.runner.host = textField(runner, "host", "results.runner");
        f.runner.jobs = static_cast<int>(integerField(runner, "jobs", "results.runner", 1, 1 << 20));
        f.runner.state = textField(runner, "state", "results.runner");
        if (f.runner.state != "running" && f.runner.state != "finished" && f.runner.state != "interrupted")
            throw Bad("results.runner.state must be running, finished or interrupted");
        f.updated = numberField(top, "updated", "results");
        f.parameters = columnsOf(top, "parameters");
        f.responses = columnsOf(top, "responses");
        const auto& designs = field(top, "designs", "results");
        if (!designs.is_array()) throw Bad("results.designs must be an array");
        for (const auto& e : designs)
            f.designs.push_back(entryOf(e, f, "results.designs[" + std::to_string(f.designs.size()) + "]"));
        out = std::move(f);
        return true;
    } catch (const Bad& e) {
        error = name + ": " + e.what();
    } catch (const nlohmann::json::exception& e) {
        error = name + ": " + e.what();
    }
    return false;
}

bool readResultsJson(const std::string& path, ResultsFile& out, std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "no results yet: " + path + " is missing (run the study first)";
        return false;
    }
    std::stringstream s;
    s << in.rdbuf();
    return parseResultsJson(s.str(), path, out, error);
}

}  // namespace portalrun
