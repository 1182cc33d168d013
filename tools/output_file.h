// Output that is never left half-written under its final name: a file is
// written to a temporary name beside the target and renamed by commit();
// dropping the object without commit() removes the temporary file. "-" is
// standard output, where a failure simply stops the stream.
#pragma once

#include <stdio.h>

#include <string>

namespace parvex_tool {

class OutputFile {
public:
    explicit OutputFile(const std::string &path);
    ~OutputFile();
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    FILE *file() const { return file_; }
    const std::string &name() const { return path_; }
    bool isStdout() const { return path_ == "-"; }

    // fwrite that throws a ToolError on a short write.
    void write(const void *data, size_t size);
    void commit();

private:
    std::string path_, temp_;
    FILE *file_ = nullptr;
    bool committed_ = false;
};

}  // namespace parvex_tool
