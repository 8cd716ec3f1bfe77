// Runs one effect on one frame straight through the library's C++ interface, as a C++ host does:
//   python_reference NAME bgra|yuv420p WIDTH HEIGHT [property=value ...] < frame > result
// The frame is read and written as tight planes (YUV420P chroma (W/2) x (H/2), rounded down).
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "catalogue/Catalogue.h"
#include "libfilter/CVideoFrame.h"

int main(int argc, char** argv) {
    if (argc < 5) return 2;
    const catalogue::EffectDescription* description = catalogue::FindEffect(argv[1]);
    const bool bgra = std::string(argv[2]) == "bgra";
    const unsigned width = std::atoi(argv[3]), height = std::atoi(argv[4]);
    if (description == nullptr) return 2;
    catalogue::EffectPtr effect = catalogue::Create(*description);
    for (int i = 5; i < argc; ++i) {
        const std::string setting = argv[i];
        const size_t equals = setting.find('=');
        if (!effect->SetProperty(setting.substr(0, equals).c_str(), setting.c_str() + equals + 1))
            return 3;
    }
    std::vector<unsigned char> pixels(std::istreambuf_iterator<char>(std::cin), {});
    const unsigned chroma = (width / 2) * (height / 2);
    if (pixels.size() != (bgra ? width * height * 4 : width * height + 2 * chroma)) return 4;
    unsigned char* planes[3] = {pixels.data(), pixels.data() + width * height,
                                pixels.data() + width * height + chroma};
    int pitches[3] = {static_cast<int>(bgra ? width * 4 : width), static_cast<int>(width / 2),
                      static_cast<int>(width / 2)};
    MediaCore::CVideoFrame frame(false, bgra ? MediaCore::PIXFMT_BGRA32 : MediaCore::PIXFMT_YUV420P,
                                 width, height, true);
    frame.SetBuffer(planes, pitches, nullptr);
    MediaCore::ImagePostion position{};
    effect->ProcFrameInPlace(&position, 0, &frame);
    std::fwrite(pixels.data(), 1, pixels.size(), stdout);
    return 0;
}
