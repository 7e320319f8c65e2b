#include "results/Page.h"

#include <algorithm>

#include "results/Text.h"

namespace zelor::results {

void writePageHead(std::ostream& out, const std::string& title) {
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
           "'unsafe-inline'\"/>\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n<title>"
        << markupText(title) << "</title>\n<style>" << kPageStyle << "</style>\n</head>\n<body>\n";
}

std::string dateText(std::chrono::system_clock::time_point time) {
    std::string text = utcText(time);
    std::replace(text.begin(), text.end(), 'T', ' ');
    return text.substr(0, text.size() - 1) + " UTC";
}

std::string stateClass(ProgressValue value) {
    return "s-" + stateName(value);
}

std::string markSvg(ProgressValue value) {
    const char* shape = "<path d=\"M2.5 2.5L9.5 9.5M2.5 9.5L9.5 2.5\"/>";
    if (value == kSuccessValue) shape = "<circle cx=\"6\" cy=\"6\" r=\"4.5\"/>";
    if (value == kAbortedValue || !isResult(value))
        shape = "<rect x=\"2\" y=\"2\" width=\"8\" height=\"8\" rx=\"1\"/>";
    return std::string("<svg viewBox=\"0 0 12 12\" aria-hidden=\"true\">") + shape + "</svg>";
}

}  // namespace zelor::results
