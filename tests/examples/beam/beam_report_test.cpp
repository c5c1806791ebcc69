// The demo study's report in a real browser: headless Chromium loads the page
// from disk, runs its script and hands back the DOM, in which every plotted
// point must carry the CSV's values for its design and sit where its values
// put it. The browser runs in a session of its own, is bounded in time, and
// its whole process group is ended afterwards.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "../example_support.h"

namespace {

namespace fs = std::filesystem;
using example_support::shell;
using example_support::slurp;
using example_support::split;

using Attributes = std::map<std::string, std::string>;

std::string unescape(std::string s) {
    for (const auto& [from, to] : {std::pair<std::string, std::string>{"&quot;", "\""}, {"&lt;", "<"},
                                   {"&gt;", ">"}, {"&#39;", "'"}, {"&amp;", "&"}})
        for (std::size_t at; (at = s.find(from)) != std::string::npos;) s.replace(at, from.size(), to);
    return s;
}

bool isNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-'; }

// The attributes (name="value") of one start tag's text.
Attributes attributes(const std::string& body) {
    Attributes a;
    for (std::size_t eq = 0; (eq = body.find("=\"", eq)) != std::string::npos;) {
        std::size_t from = eq;
        while (from > 0 && isNameChar(body[from - 1])) --from;
        const std::size_t close = body.find('"', eq + 2);
        if (close == std::string::npos) break;
        if (from < eq) a[body.substr(from, eq - from)] = unescape(body.substr(eq + 2, close - eq - 2));
        eq = close + 1;
    }
    return a;
}

// The attributes of each start tag of one element name in a piece of DOM.
std::vector<Attributes> tags(const std::string& html, const std::string& name) {
    std::vector<Attributes> out;
    const std::string open = "<" + name;
    for (std::size_t at = 0; (at = html.find(open, at)) != std::string::npos; at += open.size()) {
        const std::size_t after = at + open.size();
        if (after < html.size() && isNameChar(html[after]) && html[after] != '-') continue;  // a longer name
        const std::size_t end = html.find('>', after);
        if (end == std::string::npos) break;
        out.push_back(attributes(html.substr(after, end - after)));
    }
    return out;
}

// The text of the element that opens with `open`, up to its first child or
// end tag; nullopt when there is no such element.
std::optional<std::string> elementText(const std::string& html, const std::string& open) {
    const std::size_t at = html.find(open);
    if (at == std::string::npos) return std::nullopt;
    const std::size_t start = html.find('>', at);
    if (start == std::string::npos) return std::nullopt;
    const std::size_t end = html.find('<', start + 1);
    if (end == std::string::npos) return std::nullopt;
    return html.substr(start + 1, end - start - 1);
}

bool anyProcessMentions(const std::string& text) {
    for (const auto& e : fs::directory_iterator("/proc")) {
        const std::string cmd = slurp(e.path().string() + "/cmdline");
        if (cmd.find(text) != std::string::npos) return true;
    }
    return false;
}

// The page's DOM after its script ran, as Chromium dumps it; empty on failure.
std::string browserDom(const std::string& page, const std::string& work) {
    const std::string profile = work + "/chromium-profile";
    fs::create_directories(profile);
    const std::string out = work + "/dom.html", err = work + "/chromium.err";
    const pid_t pid = ::fork();
    if (pid < 0) return "";
    if (pid == 0) {
        ::setsid();
        const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ::dup2(o, 1);
        ::dup2(e, 2);
        const std::string dataDir = "--user-data-dir=" + profile, url = "file://" + page;
        ::execl(CHROMIUM, CHROMIUM, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                "--no-first-run", "--disable-background-networking", "--disable-component-update",
                "--disable-sync", "--disable-crash-reporter", "--disable-breakpad", dataDir.c_str(),
                "--dump-dom", url.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    bool done = false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!(done = ::waitpid(pid, &status, WNOHANG) == pid) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ::kill(-pid, SIGKILL);  // the browser's helpers share its process group
    if (!done) ::waitpid(pid, &status, 0);
    for (int i = 0; i < 40 && anyProcessMentions(profile); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(anyProcessMentions(profile)) << "a browser process outlived the test";
    EXPECT_TRUE(done) << "Chromium did not finish within 60 s";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << slurp(err);
    return done ? slurp(out) : "";
}

// Where the page put a value on an axis, from the axis range it states.
double expectedPixel(const Attributes& svg, double v, const char* lo, const char* hi, const char* from,
                     const char* to) {
    const double a = std::stod(svg.at(lo)), b = std::stod(svg.at(hi));
    return std::stod(svg.at(from)) + (v - a) / (b - a) * (std::stod(svg.at(to)) - std::stod(svg.at(from)));
}

TEST(BeamReport, BrowserShowsEveryResponseWithTheCsvValues) {
    ASSERT_TRUE(fs::exists(CHROMIUM)) << CHROMIUM << " is missing: scripts/setup.sh installs it";
    char tmpl[] = "/tmp/beam_report_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl, runs = dir + "/runs";
    const std::string tail = " --runs '" + runs + "' '" BEAM_STUDY "' >>'" + dir + "/out.txt' 2>&1";
    ASSERT_EQ(shell("BEAM_SOLVER='" BEAM_SOLVER "' '" PORTAL_RUN "' --quiet --fresh" + tail), 0)
        << slurp(dir + "/out.txt");
    ASSERT_EQ(shell("'" PORTAL_RUN "' report" + tail), 0) << slurp(dir + "/out.txt");

    const std::string dom = browserDom(runs + "/report.html", dir);
    ASSERT_FALSE(dom.empty());
    const auto html = tags(dom, "html");
    ASSERT_EQ(html.size(), 1u);
    EXPECT_TRUE(html[0].count("data-rendered")) << "the page's script did not run to its end";
    const auto errors = elementText(dom, "<pre id=\"script-errors\"");
    ASSERT_TRUE(errors.has_value()) << "the page has no place for script errors";
    EXPECT_EQ(*errors, "") << "script errors";

    // The CSV by design and column; no field of this study needs quoting.
    std::vector<std::string> lines = split(slurp(runs + "/results.csv"), '\n');
    const std::vector<std::string> head = split(lines[0], ',');
    std::map<std::string, std::map<std::string, std::string>> csv;
    for (std::size_t i = 1; i < lines.size() && !lines[i].empty(); ++i) {
        const std::vector<std::string> f = split(lines[i], ',');
        ASSERT_EQ(f.size(), head.size());
        for (std::size_t c = 0; c < f.size(); ++c) csv[f[0]][head[c]] = f[c];
    }
    ASSERT_EQ(csv.size(), 6u);

    const std::vector<std::string> parameters = {"length", "height", "load"};
    std::map<std::string, int> scatters, lineplots;
    std::size_t from = 0;
    while ((from = dom.find("<figure", from)) != std::string::npos) {
        const std::size_t end = dom.find("</figure>", from);
        ASSERT_NE(end, std::string::npos);
        const std::string part = dom.substr(from, end - from);
        from = end;
        const Attributes fig = tags(part, "figure").at(0);
        const Attributes svg = tags(part, "svg").at(0);
        const std::string response = fig.at("data-response");
        if (fig.at("class") == "plot scatter") {
            const std::string parameter = fig.at("data-parameter");
            ++scatters[response];
            const auto points = tags(part, "circle");
            EXPECT_EQ(points.size(), csv.size()) << response << " against " << parameter;
            for (const Attributes& p : points) {
                const auto& row = csv.at(p.at("data-design"));
                EXPECT_EQ(p.at("data-x"), row.at(parameter)) << response << " design " << p.at("data-design");
                EXPECT_EQ(p.at("data-y"), row.at(response)) << response << " design " << p.at("data-design");
                EXPECT_NEAR(std::stod(p.at("cx")),
                            expectedPixel(svg, std::stod(p.at("data-x")), "data-xmin", "data-xmax", "data-left", "data-right"),
                            0.01);
                EXPECT_NEAR(std::stod(p.at("cy")),
                            expectedPixel(svg, std::stod(p.at("data-y")), "data-ymin", "data-ymax", "data-bottom", "data-top"),
                            0.01);
            }
        } else {
            ++lineplots[response];
            const auto series = tags(part, "polyline");
            EXPECT_EQ(series.size(), csv.size()) << response;
            for (const Attributes& s : series) {
                EXPECT_EQ(s.at("data-values"), csv.at(s.at("data-design")).at(response)) << response;
                const std::vector<std::string> values = split(s.at("data-values"), ';');
                const std::vector<std::string> points = split(s.at("points"), ' ');
                ASSERT_EQ(points.size(), values.size()) << response;
                for (std::size_t i = 0; i < points.size(); ++i) {
                    const std::vector<std::string> xy = split(points[i], ',');
                    EXPECT_NEAR(std::stod(xy[1]),
                                expectedPixel(svg, std::stod(values[i]), "data-ymin", "data-ymax", "data-bottom", "data-top"),
                                0.01);
                }
            }
        }
    }
    // Every response shows: each scalar against each parameter, each array once.
    for (const char* r : {"tip_deflection", "max_stress", "frequency", "mass", "overstressed"})
        EXPECT_EQ(scatters[r], 3) << r;
    for (const char* r : {"deflection_line", "moment"}) EXPECT_EQ(lineplots[r], 1) << r;
    EXPECT_EQ(scatters.size() + lineplots.size(), 7u);
    std::error_code ec;
    fs::remove_all(dir, ec);
}

}  // namespace
