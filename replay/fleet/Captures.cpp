#include "replay/fleet/Captures.h"

#include <sha2.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

namespace fs = std::filesystem;

constexpr char kManifestName[] = "captures.csv";
constexpr char kPathColumn[] = "path";
constexpr char kByteOrderMark[] = "\xef\xbb\xbf";

// The lines of a CSV text. Fields in quotes may hold commas, line breaks and doubled quotes, as
// spreadsheets write them; empty lines are left out.
std::vector<std::vector<std::string>> parseCsv(const std::string& text) {
    std::vector<std::vector<std::string>> lines{{""}};
    bool isQuoted = false;
    for (size_t i = startsWith(text, kByteOrderMark) ? sizeof(kByteOrderMark) - 1 : 0;
         i < text.size(); ++i) {
        const char c = text[i];
        std::vector<std::string>& line = lines.back();
        if (isQuoted && c == '"' && text[i + 1] == '"') {
            line.back() += text[++i];
        } else if (c == '"' && (isQuoted || line.back().empty())) {
            isQuoted = !isQuoted;
        } else if (isQuoted || (c != ',' && c != '\r' && c != '\n')) {
            line.back() += c;
        } else if (c == ',') {
            line.emplace_back();
        } else if (line.size() > 1 || !line[0].empty()) {
            lines.push_back({""});
        }
    }
    if (lines.back().size() == 1 && lines.back()[0].empty()) lines.pop_back();
    return lines;
}

void requireHeader(const std::string& path, const std::vector<std::string>& header) {
    if (std::count(header.begin(), header.end(), kPathColumn) != 1) {
        throw InputError(path + ": give it a first line that names its columns, one of them path");
    }
    std::set<std::string> taken{"", "capture", "name", "other_names"};
    for (const std::string& name : header) {
        if (taken.insert(name).second) continue;
        throw InputError(path + ": call no column " + inQuotes(name) + ", and no two the same");
    }
}

void addManifest(std::vector<FleetCapture>& captures, const std::string& path) {
    auto lines = parseCsv(contentOf(path));  // none, if the file cannot be read
    lines.resize(std::max<size_t>(1, lines.size()));
    const std::vector<std::string>& header = lines[0];
    requireHeader(path, header);
    for (size_t row = 1; row < lines.size(); ++row) {
        const std::vector<std::string>& fields = lines[row];
        if (fields.size() != header.size()) {
            throw InputError(format("%s: row %zu has %zu fields, the header %zu", path.c_str(),
                                    row + 1, fields.size(), header.size()));
        }
        FleetCapture capture;
        for (size_t i = 0; i < fields.size(); ++i) capture.columns[header[i]] = fields[i];
        capture.name = capture.columns.extract(kPathColumn).mapped();
        capture.path = (fs::path(path).parent_path() / capture.name).string();
        captures.push_back(capture);
    }
}

void addFolder(std::vector<FleetCapture>& captures, const std::string& folder) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string path = entry.path().string();
        if (!entry.is_regular_file() || endsWith(path, ".expect")) continue;
        captures.push_back({entry.path().lexically_relative(folder).string(), path, {}, ""});
    }
}

void addArgument(std::vector<FleetCapture>& captures, const std::string& argument) {
    const fs::path manifest = fs::path(argument) / kManifestName;
    if (endsWith(argument, ".csv")) {
        addManifest(captures, argument);
    } else if (fs::exists(manifest)) {
        addManifest(captures, manifest.string());
    } else if (fs::is_directory(argument)) {
        addFolder(captures, argument);
    } else {
        captures.push_back({argument, argument, {}, ""});
    }
}

}  // namespace

std::vector<FleetCapture> listCaptures(const std::vector<std::string>& arguments) {
    std::vector<FleetCapture> captures;
    try {
        for (const std::string& argument : arguments) addArgument(captures, argument);
    } catch (const fs::filesystem_error& error) {
        throw InputError(error.path1().string() + ": " + error.code().message());
    }
    std::stable_sort(captures.begin(), captures.end(),
                     [](const auto& a, const auto& b) { return a.name < b.name; });
    for (size_t i = 1; i < captures.size(); ++i) {
        if (captures[i].name != captures[i - 1].name) continue;
        throw InputError(captures[i].name + ": listed twice; leave one out");
    }
    if (captures.empty()) throw InputError(arguments.front() + ": has no captures");
    return captures;
}

std::string hashOfFile(const std::string& path) {
    char digest[SHA256_DIGEST_STRING_LENGTH];
    if (fs::is_directory(path) || SHA256File(path.c_str(), digest) == nullptr) {
        throw InputError(path + ": cannot be read: " + std::strerror(errno));
    }
    return digest;
}

std::string hashOfText(const std::string& text) {
    char digest[SHA256_DIGEST_STRING_LENGTH];
    SHA256Data(reinterpret_cast<const uint8_t*>(text.data()), text.size(), digest);
    return digest;
}

}  // namespace replay
