// Calibration files in the tool: the options that pick and shape the
// import, the lens for correct --calibration, and the lens command.
#include <stdio.h>

#include "calib/parvex_calib.h"
#include "calibration.h"
#include "output_file.h"
#include "tool_error.h"

namespace parvex_tool {

namespace {

parvex_calib::Options importOptions(const Options &o) {
    parvex_calib::Options c;
    const std::string &k = o.calibrationKind;
    c.kind = k == "opencv" ? parvex_calib::Kind::OpenCV
             : k == "fisheye" ? parvex_calib::Kind::OpenCVFisheye
             : k == "android" ? parvex_calib::Kind::Android
             : k == "lensfun" ? parvex_calib::Kind::Lensfun
                              : parvex_calib::Kind::Auto;
    c.form = o.lensForm == "coefficients" ? parvex_calib::Form::Coefficients
             : o.lensForm == "table"      ? parvex_calib::Form::Table
                                          : parvex_calib::Form::Best;
    c.lens = o.lensName;
    c.focal_mm = o.focal;
    c.crop_factor = o.cropFactor;
    return c;
}

parvex_calib::EngineLens importLens(const Options &o, int width, int height, parvex_calib::CameraModel *model) {
    try {
        const parvex_calib::Options options = importOptions(o);
        *model = parvex_calib::readCalibrationFile(o.calibrationFile, width, height, options);
        return parvex_calib::convertCameraModel(*model, options.form);
    } catch (const parvex_calib::Error &e) {
        throw ToolError(e.what());
    }
}

std::string numberText(double v) {
    char text[40];
    snprintf(text, sizeof text, "%.9g", v);
    return text;
}

void printSummary(FILE *out, const parvex_calib::EngineLens &lens, const parvex_calib::CameraModel &model) {
    fprintf(out, "%s calibration %s for %dx%d frames\n", lens.source.c_str(), model.name.c_str(), model.width,
            model.height);
    for (const std::string &note : lens.notes) fprintf(out, "  %s\n", note.c_str());
    fprintf(out, "fit error: max %.3f px, RMS %.3f px (output pixels over the frame, %s)\n", lens.fit_max_px,
            lens.fit_rms_px, lens.mode == 0 ? "coefficients" : "table");
}

Lens toolLens(const parvex_calib::EngineLens &lens) {
    Lens l;
    l.table = lens.mode == 1;
    for (int k = 0; k < 4; ++k) l.coef[k] = lens.coef[k];
    l.outputRadii = lens.xs;
    l.sourceRadii = lens.ys;
    return l;
}

void writeTable(const std::string &path, const parvex_calib::EngineLens &lens) {
    OutputFile file(path);
    std::string text = "# " + lens.source + " lens: output radius, source radius (1 = centre to top-left corner)\n";
    for (size_t i = 0; i < lens.xs.size(); ++i) text += numberText(lens.xs[i]) + " " + numberText(lens.ys[i]) + "\n";
    file.write(text.data(), text.size());
    file.commit();
}

}  // namespace

void parseCalibrationOption(const std::string &option, const std::string &value, Options *o) {
    auto bad = [&](const std::string &expected) {
        throw UsageError(option + ": \"" + value + "\" is not " + expected);
    };
    if (option == "--calibration") {
        if (value.empty()) throw UsageError("--calibration needs a file name");
        o->calibrationFile = value;
    } else if (option == "--kind") {
        if (value != "opencv" && value != "fisheye" && value != "android" && value != "lensfun" && value != "auto")
            bad("a calibration kind (opencv, fisheye, android, lensfun or auto)");
        o->calibrationKind = value == "auto" ? "" : value;
    } else if (option == "--lens") {
        if (value.empty()) throw UsageError("--lens needs a lens name");
        o->lensName = value;
    } else if (option == "--focal") {
        if (!parseDouble(value, &o->focal) || !(o->focal > 0)) bad("a focal length in mm");
    } else if (option == "--crop-factor") {
        if (!parseDouble(value, &o->cropFactor) || !(o->cropFactor > 0)) bad("a crop factor");
    } else if (option == "--form") {
        if (value != "best" && value != "coefficients" && value != "table") bad("best, coefficients or table");
        o->lensForm = value == "best" ? "" : value;
    }
}

Lens lensFromCalibration(const Options &o, int width, int height, double center[2], bool quiet) {
    // The engine applies strength and crop to coefficient lenses only.
    Options options = o;
    if (o.strengthGiven || o.cropGiven) {
        if (o.lensForm == "table") throw UsageError("--strength and --crop need a coefficient lens; leave out --form table");
        options.lensForm = "coefficients";
    }
    parvex_calib::CameraModel model;
    const parvex_calib::EngineLens lens = importLens(options, width, height, &model);
    if (!quiet) printSummary(stderr, lens, model);
    center[0] = lens.center_x;
    center[1] = lens.center_y;
    return toolLens(lens);
}

int runLens(const Options &o) {
    Options options = o;
    if (!o.tableFile.empty()) {
        if (o.lensForm == "coefficients") throw UsageError("--table writes a table; it cannot go with --form coefficients");
        options.lensForm = "table";
    }
    // Without --size the calibration's own size is used (Lensfun has none).
    parvex_calib::CameraModel model;
    const parvex_calib::EngineLens lens =
        importLens(options, o.sizeGiven ? o.size.width : 0, o.sizeGiven ? o.size.height : 0, &model);
    printSummary(stdout, lens, model);
    const std::string center = "--center " + numberText(lens.center_x) + "," + numberText(lens.center_y);
    if (lens.mode == 0) {
        std::string line;
        for (int k = 0; k < 4; ++k) line += "--k" + std::to_string(k + 1) + " " + numberText(lens.coef[k]) + " ";
        printf("options: %s%s\n", line.c_str(), center.c_str());
    } else if (!o.tableFile.empty()) {
        writeTable(o.tableFile, lens);
        printf("options: --table %s %s\n", o.tableFile.c_str(), center.c_str());
    } else {
        printf("options: --table OUT.txt %s  (write the %zu-point table with parvex lens %s --table OUT.txt)\n",
               center.c_str(), lens.xs.size(), o.calibrationFile.c_str());
    }
    printf("output scale: focal lengths divided by %.6f (OpenCV's new camera matrix for the same picture)\n",
           lens.fill_scale);
    return 0;
}

}  // namespace parvex_tool
