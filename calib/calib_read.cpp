// Reading a calibration of any kind: the kind is told by the caller or
// recognised from the content (XML root element, JSON keys, YAML).
#include <errno.h>
#include <string.h>

#include <filesystem>
#include <fstream>

#include "calib/calib_internal.h"

namespace parvex_calib {

namespace {

// Size limit for calibration files; larger ones are not calibrations.
constexpr std::streamoff kMaxFileBytes = 64 << 20;

Kind detectKind(const std::string &text, const std::string &name) {
    size_t i = 0;
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) i = 3;
    while (i < text.size() && isspace(static_cast<unsigned char>(text[i]))) ++i;
    if (i == text.size()) detail::fail(name, "", "empty file");
    if (text[i] == '<') {
        // The root element tells Lensfun from OpenCV's XML.
        if (text.find("<lensdatabase", i) != std::string::npos) return Kind::Lensfun;
        if (text.find("<opencv_storage", i) != std::string::npos) return Kind::OpenCV;
        detail::fail(name, "", "XML that is neither an OpenCV calibration (<opencv_storage>) nor a Lensfun database (<lensdatabase>)");
    }
    if (text[i] == '{' && text.find("\"android.", i) != std::string::npos) return Kind::Android;
    return Kind::OpenCV;
}

}  // namespace

CameraModel readCalibrationText(const std::string &text, const std::string &name, int32_t width, int32_t height,
                                const Options &options) {
    if (!(width == 0 && height == 0) && (width < 1 || height < 1))
        detail::fail(name, "", "frame size " + std::to_string(width) + "x" + std::to_string(height) + " is not a picture size");
    const Kind kind = options.kind == Kind::Auto ? detectKind(text, name) : options.kind;
    if (kind != Kind::Lensfun && (!options.lens.empty() || options.focal_mm > 0 || options.crop_factor > 0))
        detail::fail(name, "", "a lens name, focal length or crop factor applies only to Lensfun databases");
    switch (kind) {
        case Kind::Android: return detail::readAndroid(text, name, width, height);
        case Kind::Lensfun: return detail::readLensfun(text, name, width, height, options);
        case Kind::OpenCVFisheye: return detail::readOpenCV(text, name, width, height, true);
        default: return detail::readOpenCV(text, name, width, height, false);
    }
}

CameraModel readCalibrationFile(const std::string &path, int32_t width, int32_t height, const Options &options) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) detail::fail(path, "", "is a directory, not a calibration file");
    std::ifstream file(path, std::ios::binary);
    if (!file) detail::fail(path, "", std::string("cannot open: ") + strerror(errno));
    std::string text;
    char chunk[65536];
    while (file.read(chunk, sizeof chunk) || file.gcount() > 0) {
        text.append(chunk, static_cast<size_t>(file.gcount()));
        if (static_cast<std::streamoff>(text.size()) > kMaxFileBytes) detail::fail(path, "", "too large for a calibration file");
    }
    if (file.bad()) detail::fail(path, "", "read error");
    return readCalibrationText(text, path, width, height, options);
}

}  // namespace parvex_calib
