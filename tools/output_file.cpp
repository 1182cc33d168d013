#include "output_file.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "tool_error.h"

namespace parvex_tool {

namespace {

std::string systemError(const std::string &what, const std::string &name) {
    return what + " " + name + ": " + strerror(errno);
}

}  // namespace

OutputFile::OutputFile(const std::string &path) : path_(path) {
    if (isStdout()) {
        file_ = stdout;
        return;
    }
    const size_t slash = path.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
    if (base.empty()) throw ToolError("output " + path + " names a directory, not a file");
    std::string pattern = dir + "." + base + ".parvex-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = mkstemp(name.data());
    if (fd < 0) throw ToolError(systemError("cannot create a file beside", path));
    temp_ = name.data();
    // mkstemp makes the file private; give it the usual permissions.
    const mode_t mask = umask(0);
    umask(mask);
    if (fchmod(fd, 0666 & ~mask) != 0) {
        // Not fatal: the file is still ours to write.
    }
    file_ = fdopen(fd, "wb");
    if (!file_) {
        const int saved = errno;
        close(fd);
        unlink(temp_.c_str());
        errno = saved;
        throw ToolError(systemError("cannot write", path));
    }
}

OutputFile::~OutputFile() {
    if (isStdout() || committed_) return;
    if (file_) fclose(file_);
    unlink(temp_.c_str());
}

void OutputFile::write(const void *data, size_t size) {
    if (size == 0) return;
    if (fwrite(data, 1, size, file_) != size) throw ToolError(systemError("write error on", isStdout() ? "standard output" : path_));
}

void OutputFile::commit() {
    if (isStdout()) {
        if (fflush(stdout) != 0) throw ToolError(systemError("write error on", "standard output"));
        committed_ = true;
        return;
    }
    const bool failed = fflush(file_) != 0 || ferror(file_) != 0;
    const int closeResult = fclose(file_);
    file_ = nullptr;
    if (failed || closeResult != 0) throw ToolError(systemError("write error on", path_));
    if (rename(temp_.c_str(), path_.c_str()) != 0) throw ToolError(systemError("cannot rename the finished output to", path_));
    committed_ = true;
}

}  // namespace parvex_tool
