#include "compare/Comparison.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <map>

#include "report/RecordingReport.h"

namespace kelvane::tools::compare {

namespace {

using nlohmann::json;

std::string fmt(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char* format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

// How far `b` moved from `a`, relative to `scale`; 0 when neither moved.
double moved(double a, double b, double scale) {
    return scale > 0 ? std::fabs(b - a) / scale : (a == b ? 0 : 1);
}

const char* verdictOf(const DeviceFigures& d, const std::string& rule, std::string* detail) {
    for (const auto& [id, outcome] : d.verdicts) {
        if (id != rule) continue;
        *detail = outcome.detail;
        return check::verdictName(outcome.verdict);
    }
    return "-";
}

void compareVerdicts(const DeviceFigures& a, const DeviceFigures& b, std::vector<Difference>* out) {
    std::vector<std::string> rules;
    for (const auto* d : {&a, &b}) {
        for (const auto& [id, outcome] : d->verdicts) {
            if (std::find(rules.begin(), rules.end(), id) == rules.end()) rules.push_back(id);
        }
    }
    for (const std::string& rule : rules) {
        std::string detailA;
        std::string detailB;
        const std::string va = verdictOf(a, rule, &detailA);
        const std::string vb = verdictOf(b, rule, &detailB);
        // A device that sent nothing has no verdicts but the one that says so.
        if (va == vb || va == "-" || vb == "-") continue;
        const bool worse = vb == "FAIL";
        out->push_back({b.name, rule + " " + va + " -> " + vb + " (" + detailB + ")",
                        worse ? 1000.0 : 500.0, worse});
    }
}

void compareStreams(const DeviceFigures& a, const DeviceFigures& b, std::vector<Difference>* out) {
    const auto& ia = a.intervals;
    const auto& ib = b.intervals;
    const double rate = moved(ia.rateHz, ib.rateHz, ia.rateHz);
    if (rate > 0.02) {
        out->push_back({b.name,
                        fmt("rate %.4g -> %.4g Hz (%+.0f %%)", ia.rateHz, ib.rateHz,
                            ia.rateHz > 0 ? 100.0 * (ib.rateHz - ia.rateHz) / ia.rateHz : 0.0),
                        100.0 * rate});
    }
    if (ia.gaps != ib.gaps) {
        out->push_back({b.name, fmt("gaps %zu -> %zu", ia.gaps, ib.gaps),
                        50.0 + std::fabs(double(ib.gaps) - double(ia.gaps))});
    }
    const double jitter = moved(ia.jitterNs, ib.jitterNs, std::max(ia.medianNs, 1.0));
    if (jitter > 0.01) {
        out->push_back({b.name, fmt("jitter %.3g -> %.3g ms", ia.jitterNs / 1e6, ib.jitterNs / 1e6),
                        100.0 * jitter});
    }
    if (a.latencyP99Ms && b.latencyP99Ms &&
        std::fabs(*b.latencyP99Ms - *a.latencyP99Ms) > std::max(5.0, 0.5 * *a.latencyP99Ms)) {
        out->push_back({b.name,
                        fmt("latency p99 %.3g -> %.3g ms", *a.latencyP99Ms, *b.latencyP99Ms),
                        10.0 * moved(*a.latencyP99Ms, *b.latencyP99Ms, *a.latencyP99Ms)});
    }
}

void compareValues(const DeviceFigures& a, const DeviceFigures& b, std::vector<Difference>* out) {
    for (const ChannelFigures& ca : a.channels) {
        for (const ChannelFigures& cb : b.channels) {
            if (ca.name != cb.name) continue;
            // A mean that moved by more than the noise, or noise that grew or shrank by half.
            const double noise = std::max({ca.stdDev, cb.stdDev, 1e-3 * std::fabs(ca.mean), 1e-9});
            const double shift = moved(ca.mean, cb.mean, noise);
            if (shift > 3.0) {
                out->push_back({b.name,
                                fmt("%s mean %.4g -> %.4g %s (%.3g sd)", ca.name.c_str(), ca.mean,
                                    cb.mean, b.unit.c_str(), shift),
                                std::min(90.0, 10.0 * shift)});
            }
            const double ratio = (cb.stdDev + 1e-9) / (ca.stdDev + 1e-9);
            if ((ratio > 1.5 || ratio < 1 / 1.5) && std::max(ca.stdDev, cb.stdDev) > 1e-6) {
                out->push_back({b.name,
                                fmt("%s sd %.4g -> %.4g %s", ca.name.c_str(), ca.stdDev, cb.stdDev,
                                    b.unit.c_str()),
                                std::min(80.0, 20.0 * std::max(ratio, 1 / ratio))});
            }
        }
    }
}

}  // namespace

bool Comparison::worse() const {
    return std::any_of(differences.begin(), differences.end(),
                       [](const Difference& d) { return d.worse; });
}

Comparison compareRecordings(const std::string& nameA, std::vector<DeviceFigures> a,
                             const std::string& nameB, std::vector<DeviceFigures> b) {
    Comparison c{nameA, nameB, std::move(a), std::move(b), {}, {}};
    std::vector<bool> matched(c.b.size(), false);
    for (size_t i = 0; i < c.a.size(); ++i) {
        int found = -1;
        for (size_t j = 0; j < c.b.size() && found < 0; ++j) {
            if (!matched[j] && c.b[j].name == c.a[i].name) found = static_cast<int>(j);
        }
        c.pairs.emplace_back(static_cast<int>(i), found);
        if (found < 0) {
            c.differences.push_back({c.a[i].name, "only in " + nameA, 900, true});
            continue;
        }
        matched[found] = true;
        compareVerdicts(c.a[i], c.b[found], &c.differences);
        compareStreams(c.a[i], c.b[found], &c.differences);
        compareValues(c.a[i], c.b[found], &c.differences);
    }
    for (size_t j = 0; j < c.b.size(); ++j) {
        if (matched[j]) continue;
        c.pairs.emplace_back(-1, static_cast<int>(j));
        c.differences.push_back({c.b[j].name, "only in " + nameB, 400, false});
    }
    std::stable_sort(c.differences.begin(), c.differences.end(),
                     [](const Difference& x, const Difference& y) { return x.weight > y.weight; });
    return c;
}

}  // namespace kelvane::tools::compare

namespace kelvane::tools::compare {

namespace {

using Row = std::array<std::string, 3>;  // what, in A, in B

std::string latencyText(const DeviceFigures& d) {
    if (!d.latencyP50Ms) return "-";
    return fmt("%.3g / %.3g", *d.latencyP50Ms, *d.latencyP99Ms);
}

// One figure of both, "-" where a recording lacks the device.
Row row(const std::string& what, const DeviceFigures* a, const DeviceFigures* b,
        const std::function<std::string(const DeviceFigures&)>& figure) {
    return {what, a ? figure(*a) : "-", b ? figure(*b) : "-"};
}

std::vector<Row> rowsOf(const DeviceFigures* a, const DeviceFigures* b) {
    const DeviceFigures& any = a ? *a : *b;
    std::vector<Row> rows = {
        row("samples", a, b, [](const auto& d) { return std::to_string(d.samples); }),
        row("rate (Hz)", a, b, [](const auto& d) { return fmt("%.4g", d.intervals.rateHz); }),
        row("interval median (ms)", a, b,
            [](const auto& d) { return fmt("%.4g", d.intervals.medianNs / 1e6); }),
        row("jitter (ms)", a, b,
            [](const auto& d) { return fmt("%.3g", d.intervals.jitterNs / 1e6); }),
        row("gaps", a, b, [](const auto& d) { return std::to_string(d.intervals.gaps); }),
        row("latency p50 / p99 (ms)", a, b, latencyText),
    };
    for (size_t c = 0; c < any.channels.size(); ++c) {
        const std::string name = any.channels[c].name;
        auto channel = [name](const DeviceFigures& d) -> const ChannelFigures* {
            for (const ChannelFigures& ch : d.channels) {
                if (ch.name == name) return &ch;
            }
            return nullptr;
        };
        rows.push_back(
            row(name + " mean / sd / range (" + any.unit + ")", a, b, [&](const auto& d) {
                const ChannelFigures* ch = channel(d);
                return ch ? fmt("%.4g / %.3g / %.4g..%.4g", ch->mean, ch->stdDev, ch->min, ch->max)
                          : std::string("-");
            }));
    }
    for (const auto& [rule, outcome] : any.verdicts) {
        rows.push_back(row(rule, a, b, [&rule = rule](const auto& d) {
            std::string detail;
            return std::string(verdictOf(d, rule, &detail));
        }));
    }
    return rows;
}

const DeviceFigures* at(const std::vector<DeviceFigures>& devices, int index) {
    return index < 0 ? nullptr : &devices[static_cast<size_t>(index)];
}

}  // namespace

std::string comparisonText(const Comparison& c) {
    std::string out = "A: " + c.nameA + "\nB: " + c.nameB + "\n\n";
    if (c.differences.empty()) out += "No difference that matters.\n";
    if (!c.differences.empty()) out += "Differences that matter, largest first:\n";
    for (const Difference& d : c.differences) {
        out += std::string(d.worse ? "  WORSE " : "        ") + d.device + ": " + d.what + "\n";
    }
    for (const auto& [ia, ib] : c.pairs) {
        const DeviceFigures* a = at(c.a, ia);
        const DeviceFigures* b = at(c.b, ib);
        out += "\n" + fmt("%-40s %-36s %s", (a ? a : b)->name.c_str(), "A", "B") + "\n";
        for (const Row& r : rowsOf(a, b)) {
            out += fmt("  %-38s %-36s %s", r[0].c_str(), r[1].c_str(), r[2].c_str()) + "\n";
        }
    }
    return out;
}

nlohmann::json comparisonJson(const Comparison& c, size_t buckets) {
    json differences = json::array();
    for (const Difference& d : c.differences) {
        differences.push_back({{"device", d.device}, {"what", d.what}, {"worse", d.worse}});
    }
    json devices = json::array();
    for (const auto& [ia, ib] : c.pairs) {
        const DeviceFigures* a = at(c.a, ia);
        const DeviceFigures* b = at(c.b, ib);
        json charts = json::object();
        for (const auto& [key, d] : {std::pair{"a", a}, std::pair{"b", b}}) {
            if (d == nullptr || d->t.empty()) continue;
            const report::Decimated drawn = report::decimate(d->t, d->values, buckets, 1e300);
            json series = json::array();
            for (size_t k = 0; k < drawn.columns.size(); ++k) {
                json values = json::array();
                for (const auto& v : drawn.columns[k]) values.push_back(v ? json(*v) : json());
                series.push_back({{"name", d->channels[k].name}, {"v", std::move(values)}});
            }
            charts[key] = {{"t", drawn.t}, {"series", std::move(series)}};
        }
        devices.push_back({{"name", (a ? a : b)->name},
                           {"unit", (a ? a : b)->unit},
                           {"rows", rowsOf(a, b)},
                           {"charts", std::move(charts)}});
    }
    return {{"kind", "compare"},
            {"a", c.nameA},
            {"b", c.nameB},
            {"worse", c.worse()},
            {"differences", std::move(differences)},
            {"devices", std::move(devices)}};
}

}  // namespace kelvane::tools::compare
