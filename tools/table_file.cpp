#include "table_file.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "tool_error.h"

namespace parvex_tool {

namespace {

// Reads one number at *cursor (after blanks); false when there is none.
bool readNumber(const char **cursor, double *value) {
    const char *p = *cursor;
    while (*p == ' ' || *p == '\t' || *p == ',') ++p;
    if (*p == '\0') return false;
    char *end = nullptr;
    errno = 0;
    const double v = strtod(p, &end);
    if (end == p || errno == ERANGE || !isfinite(v)) return false;
    *value = v;
    *cursor = end;
    return true;
}

bool onlyBlanks(const char *p) {
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n') ++p;
    return *p == '\0';
}

}  // namespace

void readTableFile(const std::string &path, Lens *lens) {
    FILE *file = fopen(path.c_str(), "r");
    if (!file) throw ToolError("cannot open the lens table " + path + ": " + strerror(errno));
    lens->table = true;
    lens->outputRadii.clear();
    lens->sourceRadii.clear();
    std::string line;
    int number = 0;
    std::string fault;
    for (;;) {
        line.clear();
        int c;
        while ((c = getc(file)) != EOF && c != '\n') line.push_back(static_cast<char>(c));
        if (c == EOF && line.empty()) break;
        ++number;
        const size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        if (line.find('\0') != std::string::npos) {
            fault = "not a text file";
            break;
        }
        if (onlyBlanks(line.c_str())) continue;
        const char *cursor = line.c_str();
        double out = 0, src = 0;
        if (!readNumber(&cursor, &out) || !readNumber(&cursor, &src) || !onlyBlanks(cursor)) {
            fault = "expected two numbers (output radius, source radius)";
            break;
        }
        if (out < 0 || src < 0) {
            fault = "radii cannot be negative";
            break;
        }
        if (!lens->outputRadii.empty() && out <= lens->outputRadii.back()) {
            fault = "output radii must rise from line to line";
            break;
        }
        if (static_cast<int>(lens->outputRadii.size()) == kMaxTablePoints) {
            fault = "more than " + std::to_string(kMaxTablePoints) + " points";
            break;
        }
        lens->outputRadii.push_back(out);
        lens->sourceRadii.push_back(src);
    }
    const bool readError = ferror(file) != 0;
    fclose(file);
    if (!fault.empty()) throw ToolError(path + ":" + std::to_string(number) + ": " + fault);
    if (readError) throw ToolError("read error on the lens table " + path);
    if (lens->outputRadii.size() < 2)
        throw ToolError(path + ": a lens table needs at least two points (it has " +
                        std::to_string(lens->outputRadii.size()) + ")");
}

}  // namespace parvex_tool
