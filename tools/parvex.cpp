// parvex: command-line front end of the distortion-correction library.
#include <stdio.h>
#include <string.h>

#include "parvex_distortion_correction.h"

int main(int argc, char **argv) {
    const char *command = argc > 1 ? argv[1] : "demo";
    if (strcmp(command, "demo") == 0 || strcmp(command, "info") == 0) {
        parvex_DistortionCorrection_InitParam param;
        memset(&param, 0, sizeof param);
        param.format = "YUV420_SEMIPLANAR";
        param.width = 1920;
        param.height = 1080;
        printf("%s\n", parvex_DistortionCorrection_getVersion());
        printf("work buffer for a 1920x1080 YUV420_SEMIPLANAR engine: %d bytes\n",
               parvex_DistortionCorrection_getBufferSize(&param));
        return 0;
    }
    fprintf(stderr, "usage: parvex demo | info\n");
    return 2;
}
