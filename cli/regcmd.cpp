// regcmd.cpp - `kp120 reg export [--regedit4] [KEY] [FILE]` and
// `kp120 reg import FILE`.
//
// Export writes KEY (the whole registry without one) and its subtree to
// FILE, or to standard output.  Import reads the whole file first: a file
// with any bad line is reported line by line and nothing is written;
// otherwise it is applied in one transaction.
#include "regcmd.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

#include "kp120/regtool.h"
#include "tr.h"
#include "wtf8.h"

namespace kp::cli {

namespace {

int fail(const std::string& msg) {
    std::fprintf(stderr, "kp120: %s\n", msg.c_str());
    return 1;
}

using kp::host::utf8;

const char kRegUsage[] = "usage: kp120 reg export [--regedit4] [KEY] [FILE]\n"
                         "       kp120 reg import FILE\n";
const char kRegUsageFr[] = "usage : kp120 reg export [--regedit4] [CLÉ] [FICHIER]\n"
                           "        kp120 reg import FICHIER\n";

// The messages of one reg command in the interface language.
struct Words {
    int language;
    std::string operator()(const char* en, const char* fr) const { return tr(language, en, fr); }
    const char* usage() const { return tr(language, kRegUsage, kRegUsageFr); }
};

// The notes of one call: the names an export leaves out, the bad lines or
// the refused key of an import.
struct Notes {
    const Words& T;
    const std::string& file;
    std::u16string key;

    static void note(void* context, size_t line, const char* text, const char16_t* name, size_t length) {
        auto& self = *static_cast<Notes*>(context);
        if (line)
            std::fprintf(stderr, "%s:%zu: %s\n", self.file.c_str(), line, text);
        else
            self.key.assign(name, length);
    }
    static void skipped(void* context, size_t, const char*, const char16_t* name, size_t length) {
        auto& self = *static_cast<Notes*>(context);
        std::fprintf(stderr, "kp120: %s%s\n",
                     tr(self.T.language,
                        "left out (a line end in its name): ", "omise (une fin de ligne dans son nom) : "),
                     utf8(std::u16string_view(name, length)).c_str());
    }
};

int run_export(const std::vector<std::string>& args, const std::string& database, const Words& T) {
    bool regedit4 = false;
    std::vector<std::string> pos;
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--regedit4")
            regedit4 = true;
        else
            pos.push_back(args[i]);
    }
    if (pos.size() > 2) return fail(T.usage());
    std::u16string key = pos.empty() ? std::u16string() : kp::host::utf16(pos[0]);
    Notes notes{T, database, {}};
    kp120_regtool_bytes file{};
    if (uint32_t e = kp120_regtool_export(database.c_str(), key.data(), key.size(), regedit4, &file,
                                          Notes::skipped, &notes)) {
        if (e == 2)
            return fail(T("no key '", "pas de clé '") + utf8(key) +
                        T("' in the registry", "' dans le registre"));
        return fail(T("cannot read the registry (error ", "impossible de lire le registre (erreur ") +
                    std::to_string(e) + ")");
    }
    std::vector<uint8_t> bytes(file.data, file.data + file.size);
    kp120_regtool_free(&file);
    if (pos.size() < 2 || pos[1] == "-") {
        if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size())
            return fail(T("cannot write the output", "impossible d'écrire la sortie"));
        return 0;
    }
    std::ofstream out(pos[1], std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) return fail(T("cannot write '", "impossible d'écrire '") + pos[1] + "'");
    return 0;
}

int run_import(const std::vector<std::string>& args, const std::string& database, const Words& T) {
    if (args.size() != 2) return fail(T.usage());
    const std::string& file = args[1];
    std::vector<uint8_t> bytes;
    if (file == "-") {
        bytes.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    } else {
        std::ifstream in(file, std::ios::binary);
        if (!in) return fail(T("cannot read '", "impossible de lire '") + file + "'");
        bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    Notes notes{T, file, {}};
    uint32_t e = 0;
    switch (kp120_regtool_import(database.c_str(), bytes.data(), bytes.size(), &e, Notes::note, &notes)) {
    case KP120_REGTOOL_IMPORTED:
        return 0;
    case KP120_REGTOOL_BAD_FILE:
        return fail(T("nothing imported from '", "rien n'a été importé de '") + file + "'");
    default:
        return fail(T("nothing imported: key '", "rien n'a été importé : la clé '") + utf8(notes.key) +
                    T("' failed (error ", "' a échoué (erreur ") + std::to_string(e) + ")");
    }
}

} // namespace

int run_reg(const std::vector<std::string>& args, const std::string& registry_path, int language) {
    const Words T{language};
    if (args.empty()) return fail(T.usage());
    if (args[0] == "export") return run_export(args, registry_path, T);
    if (args[0] == "import") return run_import(args, registry_path, T);
    return fail(T.usage());
}

} // namespace kp::cli
