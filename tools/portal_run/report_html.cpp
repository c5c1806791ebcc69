// The report page. A response counts as an array when any design gave it
// several values, as scalar when every design gave one number, and as text
// otherwise; only numbers are plotted. A point is drawn for every design
// that has both values, whatever its status, so the plots show what the
// table shows. The page's one script highlights a design across table and
// plots, sorts the table, and marks the page rendered; script errors are
// written into the page itself so a headless browser can see them.
#include "report_html.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <sstream>

#include "results.h"

namespace portalrun {

namespace {

// Plot area inside each SVG, in pixels.
constexpr double kWidth = 420, kHeight = 300;
constexpr double kLeft = 80, kRight = 405, kTop = 15, kBottom = 255;

std::string numberText(double v) { return valueText(Value::ofReal(v)); }

// Values joined by ';' as the CSV has them, "null" where JSON has null.
std::string valuesText(const std::vector<std::optional<double>>& values) {
    std::string all;
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i) all += ';';
        all += values[i] ? numberText(*values[i]) : std::string("null");
    }
    return all;
}

std::string pixel(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.2f", v);
    return buf;
}

std::string tickText(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4g", v);
    return buf;
}

struct Axis {
    double min = 0, max = 1;
    std::vector<std::string> categories;  // a text parameter's values, in order of first use

    void fit(const std::vector<double>& values) {
        bool any = false;
        for (double v : values) {
            if (!std::isfinite(v)) continue;
            min = any ? std::min(min, v) : v;
            max = any ? std::max(max, v) : v;
            any = true;
        }
        if (!any) min = 0, max = 1;
        // A margin, so that no point sits on the frame; one value gets a
        // band around it and sits in the middle.
        const double pad = min != max ? (max / 2 - min / 2) * 0.1 : min == 0 ? 1 : std::fabs(min) * 0.1;
        min -= pad;
        max += pad;
    }
    // Round values within the range, 1, 2 or 5 times a power of ten apart.
    std::vector<double> ticks() const {
        const double raw = (max / 2 - min / 2) / 2;  // a quarter of the range
        const double p = std::pow(10.0, std::floor(std::log10(raw)));
        const double step = raw / p < 1.5 ? p : raw / p < 3.5 ? 2 * p : raw / p < 7.5 ? 5 * p : 10 * p;
        std::vector<double> out;
        if (!std::isfinite(step) || step <= 0) return {min, max};
        for (double t = std::ceil(min / step) * step; t <= max && out.size() < 12; t += step)
            out.push_back(std::fabs(t) < step * 1e-9 ? 0.0 : t);
        return out;
    }
    // Halves, so that the widest finite range can't overflow.
    double at(double v, double from, double to) const {
        return from + (v / 2 - min / 2) / (max / 2 - min / 2) * (to - from);
    }
};

std::string svgOpen(const Axis& x, const Axis& y, const std::string& cls) {
    std::ostringstream s;
    s << "<svg class=\"" << cls << "\" width=\"" << kWidth << "\" height=\"" << kHeight
      << "\" viewBox=\"0 0 " << kWidth << " " << kHeight << "\" data-xmin=\"" << numberText(x.min)
      << "\" data-xmax=\"" << numberText(x.max) << "\" data-ymin=\"" << numberText(y.min)
      << "\" data-ymax=\"" << numberText(y.max) << "\" data-left=\"" << kLeft << "\" data-right=\""
      << kRight << "\" data-top=\"" << kTop << "\" data-bottom=\"" << kBottom << "\">";
    s << "<rect class=\"frame\" x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << kRight - kLeft
      << "\" height=\"" << kBottom - kTop << "\"/>";
    for (double vy : y.ticks()) {
        const std::string py = pixel(y.at(vy, kBottom, kTop));
        s << "<line class=\"grid\" x1=\"" << kLeft << "\" x2=\"" << kRight << "\" y1=\"" << py
          << "\" y2=\"" << py << "\"/><text class=\"tick\" x=\"" << kLeft - 4 << "\" y=\"" << py
          << "\" text-anchor=\"end\" dominant-baseline=\"middle\">" << tickText(vy) << "</text>";
    }
    const std::size_t n = x.categories.size();
    std::vector<double> xs;
    for (std::size_t i = 0; i < n; i += std::max<std::size_t>(1, n / 8)) xs.push_back(static_cast<double>(i));
    if (!n) xs = x.ticks();
    for (double vx : xs) {
        const std::string px = pixel(x.at(vx, kLeft, kRight));
        const std::string label = n ? x.categories[static_cast<std::size_t>(vx)] : tickText(vx);
        s << "<text class=\"tick\" x=\"" << px << "\" y=\"" << kBottom + 16
          << "\" text-anchor=\"middle\">" << htmlEscape(label) << "</text>";
    }
    return s.str();
}

std::string svgClose(const std::string& xLabel, const std::string& yLabel) {
    std::ostringstream s;
    s << "<text class=\"label\" x=\"" << (kLeft + kRight) / 2 << "\" y=\"" << kHeight - 6
      << "\" text-anchor=\"middle\">" << htmlEscape(xLabel) << "</text><text class=\"label\" x=\"12\" y=\""
      << (kTop + kBottom) / 2 << "\" text-anchor=\"middle\" transform=\"rotate(-90 12 "
      << (kTop + kBottom) / 2 << ")\">" << htmlEscape(yLabel) << "</text></svg>";
    return s.str();
}

enum class Shape { Scalar, Array, Text, Empty };

Shape shapeOf(const ResultsFile& f, std::size_t r) {
    bool number = false, text = false;
    for (const DesignEntry& d : f.designs) {
        const Cell& c = d.responses[r];
        if (c.kind == Cell::Kind::Array) return Shape::Array;
        number |= c.kind == Cell::Kind::Number;
        text |= c.kind == Cell::Kind::Text;
    }
    return text ? Shape::Text : number ? Shape::Scalar : Shape::Empty;
}

std::string cellHtml(const Cell& c, const DesignEntry& d, const std::string& name) {
    auto note = d.nonfinite.find(name);
    switch (c.kind) {
        case Cell::Kind::Number:
            return "<td class=\"num\" data-key=\"" + numberText(c.number) + "\">" + numberText(c.number) + "</td>";
        case Cell::Kind::Text: return "<td>" + htmlEscape(c.text) + "</td>";
        case Cell::Kind::Array: {
            return "<td class=\"array\" title=\"" + htmlEscape(valuesText(c.array)) + "\">" +
                   countOf(c.array.size(), "value") + "</td>";
        }
        case Cell::Kind::Missing: break;
    }
    return note == d.nonfinite.end() ? "<td></td>" : "<td class=\"nonfinite\">" + htmlEscape(note->second) + "</td>";
}

std::string summaryHtml(const ResultsFile& f) {
    int ok = 0, failed = 0, other = 0;
    double total = 0;
    for (const DesignEntry& d : f.designs) {
        d.status == "ok" ? ++ok : d.status == "failed" ? ++failed : ++other;
        total += d.seconds.value_or(0);
    }
    const std::time_t t = static_cast<std::time_t>(f.updated);
    std::tm tm{};
    ::gmtime_r(&t, &tm);
    char when[64];
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S UTC", &tm);
    std::ostringstream s;
    s << "<section id=\"summary\"><h2>Summary</h2><dl>"
      << "<dt>Study file</dt><dd>" << htmlEscape(f.studyFile) << "</dd>"
      << "<dt>Designs</dt><dd id=\"counts\">" << countOf(f.designs.size(), "design") << ": " << ok
      << " ok, " << failed << " failed, " << other << " not finished</dd>"
      << "<dt>Run</dt><dd>" << htmlEscape(f.runner.state) << ", " << f.runner.jobs
      << " at a time; results of " << when << "</dd>"
      << "<dt>Run time</dt><dd>" << tickText(total) << " s in all";
    if (ok + failed) s << ", " << tickText(total / (ok + failed)) << " s per design";
    s << "</dd></dl></section>\n";
    return s.str();
}

std::string tableHtml(const ResultsFile& f) {
    std::ostringstream s;
    s << "<section id=\"results\"><h2>Results</h2><div class=\"wide\"><table id=\"results-table\"><thead><tr><th>design</th>";
    for (const Column& c : f.parameters) s << "<th class=\"parameter\">" << htmlEscape(c.name) << "</th>";
    for (const Column& c : f.responses) s << "<th class=\"response\">" << htmlEscape(c.name) << "</th>";
    s << "<th>status</th><th>reason</th><th>seconds</th></tr></thead><tbody>\n";
    for (const DesignEntry& d : f.designs) {
        s << "<tr data-design=\"" << d.design << "\" class=\"" << htmlEscape(d.status) << "\"><td data-key=\""
          << d.design << "\">" << d.design << "</td>";
        for (std::size_t i = 0; i < f.parameters.size(); ++i) s << cellHtml(d.parameters[i], d, f.parameters[i].name);
        for (std::size_t i = 0; i < f.responses.size(); ++i) s << cellHtml(d.responses[i], d, f.responses[i].name);
        s << "<td>" << htmlEscape(d.status) << "</td><td>" << htmlEscape(d.reason) << "</td><td class=\"num\">"
          << (d.seconds ? tickText(*d.seconds) : "") << "</td></tr>\n";
    }
    s << "</tbody></table></div></section>\n";
    return s.str();
}

std::string scatterHtml(const ResultsFile& f, std::size_t p, std::size_t r) {
    Axis x, y;
    std::vector<double> xs, ys;
    for (const DesignEntry& d : f.designs) {
        const Cell& pc = d.parameters[p];
        if (pc.kind == Cell::Kind::Text &&
            std::find(x.categories.begin(), x.categories.end(), pc.text) == x.categories.end())
            x.categories.push_back(pc.text);
        if (pc.kind == Cell::Kind::Number) xs.push_back(pc.number);
        if (d.responses[r].kind == Cell::Kind::Number) ys.push_back(d.responses[r].number);
    }
    if (!x.categories.empty()) {
        x.min = -0.5;
        x.max = static_cast<double>(x.categories.size()) - 0.5;
    } else {
        x.fit(xs);
    }
    y.fit(ys);
    const std::string& pn = f.parameters[p].name;
    const std::string& rn = f.responses[r].name;
    std::ostringstream s;
    s << "<figure class=\"plot scatter\" data-parameter=\"" << htmlEscape(pn) << "\" data-response=\""
      << htmlEscape(rn) << "\"><figcaption>" << htmlEscape(rn) << " against " << htmlEscape(pn)
      << "</figcaption>" << svgOpen(x, y, "scatter");
    for (const DesignEntry& d : f.designs) {
        const Cell& pc = d.parameters[p];
        const Cell& rc = d.responses[r];
        const bool textX = pc.kind == Cell::Kind::Text && !x.categories.empty();
        if (rc.kind != Cell::Kind::Number || (pc.kind != Cell::Kind::Number && !textX)) continue;
        const double vx = textX ? static_cast<double>(std::find(x.categories.begin(), x.categories.end(), pc.text) -
                                                      x.categories.begin())
                                : pc.number;
        const std::string xText = textX ? pc.text : numberText(pc.number);
        s << "<circle class=\"point " << htmlEscape(d.status) << "\" data-design=\"" << d.design
          << "\" data-x=\"" << htmlEscape(xText) << "\" data-y=\"" << numberText(rc.number) << "\" cx=\""
          << pixel(x.at(vx, kLeft, kRight)) << "\" cy=\"" << pixel(y.at(rc.number, kBottom, kTop))
          << "\" r=\"4\"><title>design " << d.design << ": " << htmlEscape(pn) << " = " << htmlEscape(xText)
          << ", " << htmlEscape(rn) << " = " << numberText(rc.number) << "</title></circle>";
    }
    s << svgClose(pn, rn) << "</figure>\n";
    return s.str();
}

std::string linesHtml(const ResultsFile& f, std::size_t r) {
    Axis x, y;
    std::vector<double> ys;
    std::size_t longest = 0;
    for (const DesignEntry& d : f.designs) {
        const Cell& c = d.responses[r];
        if (c.kind == Cell::Kind::Number) ys.push_back(c.number), longest = std::max<std::size_t>(longest, 1);
        for (const auto& v : c.array)
            if (v) ys.push_back(*v);
        longest = std::max(longest, c.array.size());
    }
    x.fit({0.0, static_cast<double>(longest ? longest - 1 : 0)});
    y.fit(ys);
    const std::string& rn = f.responses[r].name;
    std::ostringstream s;
    s << "<figure class=\"plot lines\" data-response=\"" << htmlEscape(rn) << "\"><figcaption>" << htmlEscape(rn)
      << " by index, one line per design</figcaption>" << svgOpen(x, y, "lines");
    int k = 0;
    std::ostringstream legend;
    for (const DesignEntry& d : f.designs) {
        const Cell& c = d.responses[r];
        std::vector<std::optional<double>> values = c.array;
        if (c.kind == Cell::Kind::Number) values = {c.number};
        if (values.empty()) continue;
        std::string points;
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (!values[i]) continue;  // a gap where JSON has null
            if (!points.empty()) points += ' ';
            points += pixel(x.at(static_cast<double>(i), kLeft, kRight));
            points += ',';
            points += pixel(y.at(*values[i], kBottom, kTop));
        }
        s << "<polyline class=\"series " << htmlEscape(d.status) << "\" data-design=\"" << d.design
          << "\" data-values=\"" << valuesText(values) << "\" points=\"" << points << "\" style=\"stroke:hsl("
          << k * 137 % 360 << ",65%,40%)\"><title>design " << d.design << "</title></polyline>";
        legend << "<span data-design=\"" << d.design << "\" style=\"color:hsl(" << k * 137 % 360
               << ",65%,40%)\">&#9644; " << d.design << "</span> ";
        ++k;
    }
    s << svgClose("index", rn) << "<p class=\"legend\">design " << legend.str() << "</p></figure>\n";
    return s.str();
}

std::string plotsHtml(const ResultsFile& f) {
    std::ostringstream scatter, lines, notes;
    for (std::size_t r = 0; r < f.responses.size(); ++r) {
        const Shape shape = shapeOf(f, r);
        const std::string name = htmlEscape(f.responses[r].name);
        if (shape == Shape::Array) lines << linesHtml(f, r);
        else if (shape == Shape::Text) notes << "<li>" << name << ": text, shown in the table only</li>";
        else if (shape == Shape::Empty) notes << "<li>" << name << ": no design has a value yet</li>";
        else
            for (std::size_t p = 0; p < f.parameters.size(); ++p) scatter << scatterHtml(f, p, r);
    }
    std::ostringstream s;
    s << "<section id=\"scatter\"><h2>Scalar responses against parameters</h2><div class=\"plots\">"
      << scatter.str() << "</div></section>\n<section id=\"lines\"><h2>Array responses</h2><div class=\"plots\">"
      << lines.str() << "</div></section>\n";
    if (!notes.str().empty()) s << "<section id=\"unplotted\"><h2>Not plotted</h2><ul>" << notes.str() << "</ul></section>\n";
    return s.str();
}

std::string failuresHtml(const ResultsFile& f) {
    std::ostringstream s;
    s << "<section id=\"failures\"><h2>Failed designs</h2>";
    bool any = false;
    for (const DesignEntry& d : f.designs) {
        if (d.status != "failed") continue;
        any = true;
        s << "<div class=\"failure\" data-design=\"" << d.design << "\"><h3>Design " << d.design
          << "</h3><p class=\"reason\">" << htmlEscape(d.reason) << "</p>";
        if (!d.messages.empty()) {
            s << "<pre class=\"messages\">";
            for (const std::string& m : d.messages) s << htmlEscape(m) << "\n";
            s << "</pre>";
        }
        s << "</div>\n";
    }
    if (!any) s << "<p>None.</p>";
    s << "</section>\n";
    return s.str();
}

const char* const kStyle =
    "body{font:14px/1.4 sans-serif;margin:1.5em;color:#222}table{border-collapse:collapse;font-size:12px}"
    "th,td{border:1px solid #ccc;padding:2px 6px;white-space:nowrap}th{background:#eee;cursor:pointer}td.num{text-align:right}"
    "tr.failed td{background:#fdd}.wide{overflow-x:auto}tr.hl td{background:#ffe38a}.plots{display:flex;flex-wrap:wrap;gap:12px}"
    "figure{margin:0}figcaption{font-weight:bold}svg .frame{fill:#fafafa;stroke:#888}"
    "svg .grid{stroke:#e4e4e4}svg .tick,svg .label{font-size:11px;fill:#444}"
    "svg .point{fill:#2a6fb0;fill-opacity:.75}svg .point.failed{fill:#c0392b}"
    "svg .series{fill:none;stroke-width:1.5}svg .hl{stroke:#000;stroke-width:3;fill:#ffb000;fill-opacity:1}"
    ".legend{max-width:420px;font-size:11px}.legend span.hl{background:#ffe38a}pre.messages{background:#f4f4f4;padding:6px;white-space:pre-wrap}";

// Set first, so that an error anywhere later on the page is seen.
const char* const kErrorCatcher =
    "window.addEventListener('error',function(e){var p=document.getElementById('script-errors');"
    "var t=(e.message||'error')+' at '+(e.filename||'')+':'+(e.lineno||0)+'\\n';"
    "if(p){p.textContent+=t;p.hidden=false;}else{window.pendingErrors=(window.pendingErrors||'')+t;}});";

const char* const kScript =
    "(function(){var p=document.getElementById('script-errors');"
    "if(window.pendingErrors){p.textContent+=window.pendingErrors;p.hidden=false;}"
    "var table=document.getElementById('results-table');"
    "function mark(n,on){var els=document.querySelectorAll('[data-design=\"'+n+'\"]');"
    "for(var i=0;i<els.length;i++)els[i].classList.toggle('hl',on);}"
    "var rows=table.tBodies[0].rows;for(var i=0;i<rows.length;i++){(function(tr){var n=tr.getAttribute('data-design');"
    "tr.addEventListener('mouseenter',function(){mark(n,true);});"
    "tr.addEventListener('mouseleave',function(){mark(n,false);});})(rows[i]);}"
    "function key(c){return c.getAttribute('data-key')||c.textContent;}"
    "var heads=table.tHead.rows[0].cells;for(var h=0;h<heads.length;h++){(function(th,col){"
    "th.addEventListener('click',function(){var body=table.tBodies[0];var list=Array.prototype.slice.call(body.rows);"
    "var asc=th.getAttribute('data-sort')!=='asc';list.sort(function(a,b){var x=key(a.cells[col]),y=key(b.cells[col]);"
    "var nx=parseFloat(x),ny=parseFloat(y);var c=(isNaN(nx)||isNaN(ny))?x.localeCompare(y):nx-ny;return asc?c:-c;});"
    "for(var i=0;i<list.length;i++)body.appendChild(list[i]);th.setAttribute('data-sort',asc?'asc':'desc');});"
    "})(heads[h],h);}"
    "document.documentElement.setAttribute('data-rendered',String(document.querySelectorAll('svg .point, svg .series').length));"
    "})();";

}  // namespace

std::string htmlEscape(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&#39;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string reportHtml(const ResultsFile& f) {
    std::ostringstream s;
    s << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Study " << htmlEscape(f.study)
      << "</title><script>" << kErrorCatcher << "</script><style>" << kStyle << "</style></head><body>\n"
      << "<h1>Study " << htmlEscape(f.study) << "</h1>\n"
      << summaryHtml(f) << tableHtml(f) << plotsHtml(f) << failuresHtml(f)
      << "<pre id=\"script-errors\" hidden></pre>\n<script>" << kScript << "</script></body></html>\n";
    return s.str();
}

}  // namespace portalrun
