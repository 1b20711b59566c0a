// Only labels and the lengths of values are checked when a file is read; what a value says is
// looked at when a login is fetched. tests/oracle/ splits and checks the same files the slow way.
#include "tal/storage_lines.h"

#include "tal/scan_number.h"
#include "tal/storage_format.h"

namespace tal_text {

namespace {

struct LengthRule {
    std::string_view label;
    size_t shortest;
    size_t longest;
    bool mayBeEmpty = false;  // a line that holds only its label is accepted too
};

constexpr LengthRule lengthRules[] = {
    {labelAaaType, 2, 2},
    {labelCircuitId, 0, longestText},
    {labelRemoteId, 0, longestText},
    {labelVendorId, 0, longestText},
    {labelClientId, 0, longestText},
    {labelSourceMac, macTextLength, macTextLength},
    {labelSourceIp, 0, 8},
    {labelUserPatternSequence, patternTextLength, patternTextLength, true},
    {labelUserPatternMask, patternTextLength, patternTextLength, true},
    {labelExtraInt, 8, 8},
    {labelExtraString, 0, longestText},
    {labelLoginIdType, 2, 2},
    {labelVlanId, 0, 4},
};

// Kept: ids of 100 and more make the file corrupt, so no login of such an interface survives.
constexpr LengthRule interfaceRule = {labelInterface, 1, 2};

bool obeys(std::string_view line, const LengthRule& rule) {
    const size_t length = line.size() - rule.label.size();
    return (length >= rule.shortest && length <= rule.longest) || (rule.mayBeEmpty && length == 0);
}

bool dataLineValid(std::string_view line) {
    for (const LengthRule& rule : lengthRules) {
        if (line.starts_with(rule.label))
            return obeys(line, rule);
    }
    return false;
}

bool interfaceLineValid(std::string_view line) {
    return line.starts_with(interfaceRule.label) && obeys(line, interfaceRule);
}

}  // namespace

void appendStorageLines(std::string_view contents, std::vector<std::string>& lines) {
    while (!contents.empty()) {
        const size_t end = contents.find('\n');
        const std::string_view line = contents.substr(0, end);
        const std::string_view kept = line.substr(0, longestLine);
        const std::string_view text = kept.substr(0, kept.find('\0'));
        if (!text.empty())
            lines.emplace_back(text);
        if (line.size() > longestLine || end == std::string_view::npos)
            return;
        contents.remove_prefix(end + 1);
    }
}

bool storageLinesValid(const std::vector<std::string>& lines) {
    if (lines.size() % linesPerBlock != 0)
        return false;
    for (size_t i = 0; i < lines.size(); ++i) {
        const bool startsBlock = i % linesPerBlock == 0;
        if (startsBlock ? !interfaceLineValid(lines[i]) : !dataLineValid(lines[i]))
            return false;
    }
    return true;
}

std::optional<unsigned> findInterfaceLine(const std::vector<std::string>& lines,
                                          unsigned interfaceId) {
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string_view line = lines[i];
        if (line.starts_with(labelInterface) &&
            scanDecimal(line.substr(labelInterface.size())) == interfaceId)
            return static_cast<unsigned>(i);
    }
    return std::nullopt;
}

}  // namespace tal_text
