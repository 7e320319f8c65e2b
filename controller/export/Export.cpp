#include "controller/export/Export.h"

#include <algorithm>

#include "base/PrintableText.h"
#include "controller/InputError.h"

namespace zelor::controller {

const std::vector<std::string>& exportFormatNames() {
    static const std::vector<std::string> kNames = {"xccdf", "ocsf", "prometheus"};
    return kNames;
}

std::optional<ExportFormat> exportFormat(const std::string& name) {
    const std::vector<std::string>& names = exportFormatNames();
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<ExportFormat>(found - names.begin());
}

void writeExport(std::ostream& out, const ExportedRun& run, ExportFormat format) {
    switch (format) {
        case ExportFormat::xccdf:
            return writeXccdf(out, run);
        case ExportFormat::ocsf:
            return writeOcsf(out, run);
        case ExportFormat::prometheus:
            return writePrometheus(out, run);
    }
}

RequestedExport requestedExport(const std::string& text) {
    const auto end = text.find('=');
    const auto format = exportFormat(text.substr(0, end));
    if (!format || end == std::string::npos || end + 1 == text.size()) {
        throw InputError("--export \"" + base::printable(text) +
                         "\" names no format and file; write xccdf=FILE, ocsf=FILE or prometheus=FILE");
    }
    return {*format, text.substr(end + 1)};
}

}  // namespace zelor::controller
