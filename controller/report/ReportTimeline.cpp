#include "controller/report/ReportTimeline.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "base/Strings.h"
#include "base/Utf8.h"
#include "controller/States.h"
#include "controller/Text.h"

namespace zelor::controller {

namespace {

constexpr double kWidth = 1080;
constexpr double kLabelWidth = 250;
constexpr double kTailWidth = 70;  ///< for the duration behind a row
constexpr double kLabelGap = 14;   ///< between a label and the drawing
constexpr double kLabelFont = 12.5;
constexpr double kAxisHeight = 26;
constexpr double kLeastSpan = 2;

/// A number for an attribute, whatever the locale.
std::string number(double value) {
    const long tenths = std::lround(value * 10);
    std::string text = std::to_string(tenths / 10);
    if (tenths % 10 != 0) text += '.' + std::to_string(std::labs(tenths % 10));
    return text;
}

std::string axisText(double seconds, double step) {
    if (step >= 60) return clockText(seconds);
    std::array<char, 32> text{};
    const int decimals = step >= 1 ? 0 : step >= 0.1 ? 1 : step >= 0.01 ? 2 : 3;
    std::snprintf(text.data(), text.size(), "%.*f s", decimals, seconds);
    return text.data();
}

struct Scale {
    double seconds;
    double at(double time) const {
        const double share = seconds > 0 ? std::min(std::max(time / seconds, 0.0), 1.0) : 0;
        return kLabelWidth + share * (kWidth - kLabelWidth - kTailWidth);
    }
};

void openPicture(std::ostream& out, double height, const std::string& title) {
    out << "<svg class=\"timeline\" xmlns=\"http://www.w3.org/2000/svg\" role=\"img\" viewBox=\"0 0 "
        << number(kWidth) << ' ' << number(height) << "\"><title>" << title << "</title>\n";
}

void writeAxis(std::ostream& out, const Scale& scale, double height) {
    const std::vector<double> times = axisTimes(scale.seconds, 8);
    const double step = times.size() > 1 ? times[1] : 1;
    for (const double time : times) {
        const std::string x = number(scale.at(time));
        out << "<line class=\"grid\" x1=\"" << x << "\" x2=\"" << x << "\" y1=\"" << number(kAxisHeight - 6)
            << "\" y2=\"" << number(height) << "\"/><text class=\"axis\" x=\"" << x << "\" y=\"14\">"
            << axisText(time, step) << "</text>\n";
    }
}

void writeBar(std::ostream& out, const std::string& kind, double from, double to, double y, double height) {
    out << "<rect class=\"" << kind << "\" x=\"" << number(from) << "\" y=\"" << number(y) << "\" width=\""
        << number(std::max(to - from, kLeastSpan)) << "\" height=\"" << number(height) << "\" rx=\"1.5\"/>";
}

/// A dot for success, a cross for failure, a square for cancelled: not only colours distinguish them.
void writeEndMark(std::ostream& out, ProgressValue value, double x, double y, double size) {
    const std::string kind = stateClass(value);
    if (value == kSuccessValue) {
        out << "<circle class=\"" << kind << "\" cx=\"" << number(x) << "\" cy=\"" << number(y) << "\" r=\""
            << number(size) << "\"/>";
    } else if (value == kAbortedValue || !isResult(value)) {
        writeBar(out, kind, x - size, x + size, y - size, size * 2);
    } else {
        const std::string left = number(x - size), right = number(x + size), top = number(y - size),
                          bottom = number(y + size);
        out << "<path class=\"cross " << kind << "\" d=\"M" << left << ' ' << top << 'L' << right << ' '
            << bottom << 'M' << left << ' ' << bottom << 'L' << right << ' ' << top << "\"/>";
    }
}

void writeSpans(std::ostream& out, const std::vector<StateSpan>& spans, const Scale& scale, double middle,
                double bar) {
    const auto busy =
        std::find_if(spans.begin(), spans.end(), [](const StateSpan& span) { return span.value != 0; });
    const double waited = busy == spans.end() ? scale.seconds : busy->begin;
    out << "<line class=\"wait\" x1=\"" << number(scale.at(0)) << "\" x2=\"" << number(scale.at(waited))
        << "\" y1=\"" << number(middle) << "\" y2=\"" << number(middle) << "\"/>";
    for (const StateSpan& span : spans) {
        if (span.value == 0 || &span == &spans.back()) continue;
        const double height = isActive(span.value) ? bar : bar / 3;
        writeBar(out, stateClass(span.value), scale.at(span.begin), scale.at(span.end), middle - height / 2,
                 height);
    }
}

void writeRow(std::ostream& out, const TimelineRow& row, const Scale& scale, double y, double height) {
    const double middle = y + height / 2;
    const double bar = std::min(height * 0.55, 12.0);
    out << "<g><title>" << row.title << "</title><text class=\"label\" x=\""
        << number(kLabelWidth - kLabelGap) << "\" y=\"" << number(middle + height * 0.18) << "\" font-size=\""
        << number(std::min(height * 0.62, kLabelFont)) << "\">" << row.label << "</text>";
    writeSpans(out, *row.spans, scale, middle, bar);
    if (!row.spans->empty()) {
        const StateSpan& last = row.spans->back();
        const double x = scale.at(last.begin) + bar / 2 + 3;
        writeEndMark(out, last.value, x, middle, bar * 0.36);
        const double took = busySeconds(*row.spans);
        if (took > 0 && height >= 14) {
            out << "<text class=\"took\" x=\"" << number(x + bar * 0.36 + 5) << "\" y=\""
                << number(middle + 4) << "\">" << shortDuration(took) << "</text>";
        }
    }
    out << "</g>\n";
}

enum class Area { succeeded, stopped, busy };

}  // namespace

std::string shortDuration(double seconds) {
    return seconds < 0.9995 ? std::to_string(std::lround(seconds * 1000)) + " ms" : durationText(seconds);
}

std::string timelineLabel(const std::string& printableText) {
    // In sizes of the font, as in the widest of the usual ones.
    const auto width = [](const std::string& letter) {
        const bool capital = letter.size() == 1 && letter[0] >= 'A' && letter[0] <= 'Z';
        if (base::contains("MWmw@%", letter)) return 1.0;
        if (letter.size() == 1) return capital ? 0.8 : 0.65;
        return columnsOf(letter) > 1 ? 1.5 : 0.9;
    };
    double room = (kLabelWidth - kLabelGap) / kLabelFont - 1;  // the mark of a cut takes 1
    std::size_t fits = 0, at = 0;
    while (at < printableText.size() && room >= 0) {
        fits = at;
        const std::size_t bytes = base::characterAt(printableText, at).bytes;
        room -= width(printableText.substr(at, bytes));
        at += bytes;
    }
    return room >= 0 ? printableText : printableText.substr(0, fits) + "…";
}

std::vector<double> axisTimes(double seconds, std::size_t most) {
    static constexpr std::array<double, 22> kSteps = {0.001, 0.002, 0.005, 0.01, 0.02, 0.05, 0.1, 0.2,
                                                      0.5,   1,     2,     5,    10,   20,   30,  60,
                                                      120,   300,   600,   1200, 1800, 3600};
    const auto fits = [&](double step) { return seconds / step + 1 <= static_cast<double>(most); };
    const auto found = std::find_if(kSteps.begin(), kSteps.end(), fits);
    double step = found == kSteps.end() ? kSteps.back() : *found;
    while (!fits(step))
        step *= 2;
    std::vector<double> times;
    for (std::size_t i = 0; static_cast<double>(i) * step <= seconds; ++i)
        times.push_back(static_cast<double>(i) * step);
    return times;
}

void writeTimeline(std::ostream& out, const std::vector<TimelineRow>& rows, double seconds) {
    const double row = rows.size() <= 40 ? 24 : rows.size() <= 120 ? 17 : 12;
    const double height = kAxisHeight + row * static_cast<double>(rows.size()) + 8;
    const Scale scale{seconds};
    openPicture(out, height, "States of the requests over time");
    writeAxis(out, scale, height);
    for (std::size_t i = 0; i < rows.size(); ++i)
        writeRow(out, rows[i], scale, kAxisHeight + row * static_cast<double>(i), row);
    out << "</svg>\n";
}

void writeStateAreas(std::ostream& out, const std::vector<std::vector<StateSpan>>& spans, double seconds) {
    constexpr std::size_t kColumns = 240;
    constexpr double kHeight = 190;
    constexpr double kFloor = kHeight - 8;
    // Counts by area at the end of each column; a request counts from the time of its change.
    std::array<std::vector<double>, 3> counts;
    for (std::vector<double>& count : counts)
        count.assign(kColumns + 2, 0);
    const auto column = [&](double time) {
        const double share = seconds > 0 ? std::min(std::max(time / seconds, 0.0), 1.0) : 1;
        return static_cast<std::size_t>(std::ceil(share * kColumns));
    };
    for (const std::vector<StateSpan>& own : spans) {
        for (const StateSpan& span : own) {
            if (span.value == 0) continue;
            const Area area = span.value == kSuccessValue ? Area::succeeded
                              : isActive(span.value)      ? Area::busy
                                                          : Area::stopped;
            std::vector<double>& count = counts.at(static_cast<std::size_t>(area));
            count[column(span.begin)] += 1;
            if (&span != &own.back()) count[column(span.end)] -= 1;
        }
    }
    const Scale scale{seconds};
    openPicture(out, kHeight, "Requests by state over time");
    writeAxis(out, scale, kFloor);
    const double perRequest =
        (kFloor - kAxisHeight) / static_cast<double>(std::max<std::size_t>(spans.size(), 1));
    std::vector<double> base(kColumns + 1, 0);
    static constexpr std::array<const char*, 3> kKinds = {"s-success", "s-failed", "s-installing"};
    for (std::size_t area = 0; area < counts.size(); ++area) {
        std::string upper;
        std::string lower;
        double sum = 0;
        for (std::size_t i = 0; i <= kColumns; ++i) {
            sum += counts.at(area)[i];
            const std::string x = number(scale.at(seconds * static_cast<double>(i) / kColumns));
            lower.insert(0, ' ' + x + ',' + number(kFloor - base[i] * perRequest));
            base[i] += sum;
            upper += ' ' + x + ',' + number(kFloor - base[i] * perRequest);
        }
        out << "<polygon class=\"" << kKinds.at(area) << "\" points=\"" << upper.substr(1) << lower
            << "\"/>\n";
    }
    out << "<line class=\"base\" x1=\"" << number(scale.at(0)) << "\" x2=\"" << number(scale.at(seconds))
        << "\" y1=\"" << number(kFloor) << "\" y2=\"" << number(kFloor) << "\"/></svg>\n";
}

}  // namespace zelor::controller
