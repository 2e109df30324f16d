// clipboard_store.cpp - the device clipboard's store file and the image
// headers read by the bitmap size: the input is taken as a store written by
// another process (and as an image).  Whatever was read back is put again
// and must read back the same.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "platform/clipboard.h"

namespace clip = kp::platform::clipboard;

namespace {
std::string g_root;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::string tmpl = (std::filesystem::temp_directory_path() / "kp120-fuzz-clip-XXXXXX").string();
    if (!mkdtemp(tmpl.data())) std::abort();
    g_root = tmpl;
    std::filesystem::create_directories(g_root + "/Windows");
    std::atexit([] {
        std::error_code ec;
        std::filesystem::remove_all(g_root, ec);
    });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int32_t w = 0, h = 0;
    clip::image_size({data, size}, w, h);
    if (w < 0 || h < 0) std::abort();
    clip::text_of_block({data, size});

    {
        std::ofstream out(g_root + "/Windows/clipboard.dat", std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    auto cb = clip::make_device_clipboard(g_root);
    for (uint32_t f : {1u, 2u, 8u, 13u})
        cb->is_format_available(f);
    if (!cb->open()) std::abort();
    std::vector<uint8_t> text, bitmap;
    const bool has_text = cb->get_data(13, text);
    const bool has_bitmap = cb->get_data(2, bitmap);
    cb->bitmap_size(w, h);
    if (!cb->empty()) std::abort();
    if (has_text && !cb->set_data(13, text)) std::abort();
    if (has_bitmap && !cb->set_data(2, bitmap)) std::abort();
    if (!cb->close()) std::abort();

    auto again = clip::make_device_clipboard(g_root);
    std::vector<uint8_t> text2, bitmap2;
    if (!again->open()) std::abort();
    if (again->get_data(13, text2) != has_text || text2 != text) std::abort();
    if (again->get_data(2, bitmap2) != has_bitmap || bitmap2 != bitmap) std::abort();
    again->close();
    return 0;
}
