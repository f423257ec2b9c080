#include "QLSDKCoreKit/platform/linux/facts/LoadedSymbols.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

#include "QLSDKCoreKit/platform/linux/files/FileDescriptor.h"
#include "QLSDKCoreKit/platform/linux/files/FileReading.h"

namespace qlsdk::platform {

namespace {

// Whole symbols of either word size.
constexpr std::size_t kPieceBytes = 48 * 1024;
static_assert(kPieceBytes % sizeof(ElfW(Sym)) == 0);
// The names of a very large program; going through them takes some hundredths of a second.
constexpr std::uint64_t kMostNameBytes = 64 * 1024 * 1024;
constexpr std::size_t kMostSections = 4096;
// A hundred bytes for each of the mappings that a process may have (65,530 by default).
constexpr std::size_t kMostMapBytes = 8 * 1024 * 1024;

/// What stands around a name in a symbol of its.
struct Spelling {
    std::string before;
    std::string after;
};

std::vector<Spelling> spellingsOf(std::string_view name) {
    const std::string length = std::to_string(name.size());
    // The symbol itself, the type information of a class, and of one in a namespace without a name.
    return {{"", ""}, {"_ZTI" + length, ""}, {"_ZTIN12_GLOBAL__N_1" + length, "E"}};
}

bool readAt(int descriptor, std::uint64_t offset, void* bytes, std::size_t size) noexcept {
    auto* place = static_cast<char*>(bytes);
    while (size > 0) {
        const ssize_t count = ::pread(descriptor, place, size, static_cast<off_t>(offset));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        place += count;
        offset += static_cast<std::uint64_t>(count);
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

struct SymbolTable {
    ElfW(Shdr) symbols;
    ElfW(Shdr) names;
};

std::vector<SymbolTable> symbolTablesOf(int descriptor) {
    ElfW(Ehdr) header;
    if (!readAt(descriptor, 0, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_shentsize != sizeof(ElfW(Shdr)) || header.e_shnum > kMostSections) {
        return {};
    }
    std::vector<ElfW(Shdr)> sections(header.e_shnum);
    if (!readAt(descriptor, header.e_shoff, sections.data(), sections.size() * sizeof(ElfW(Shdr)))) return {};
    std::vector<SymbolTable> tables;
    for (const auto& section : sections) {
        const bool holdsSymbols = section.sh_type == SHT_SYMTAB || section.sh_type == SHT_DYNSYM;
        if (!holdsSymbols || section.sh_link >= sections.size()) continue;
        const auto& names = sections[section.sh_link];
        if (names.sh_size <= kMostNameBytes) tables.push_back({section, names});
    }
    return tables;
}

/// Calls `visit(piece, offset)` for pieces that follow each other and share `overlap` bytes.
template <typename Visit>
bool readInPieces(int descriptor, const ElfW(Shdr) & section, std::size_t overlap, Visit visit) {
    std::vector<char> bytes(kPieceBytes);
    for (std::uint64_t offset = 0; offset < section.sh_size;) {
        const auto size =
            static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), section.sh_size - offset));
        if (!readAt(descriptor, section.sh_offset + offset, bytes.data(), size)) return false;
        visit(std::string_view(bytes.data(), size), offset);
        if (size < bytes.size()) break;
        offset += size - overlap;
    }
    return true;
}

/// Where in the table of names such a symbol's may begin.
std::vector<std::uint64_t> placesOf(std::string_view name, int descriptor, const ElfW(Shdr) & names) {
    const std::vector<Spelling> spellings = spellingsOf(name);
    const std::size_t longest = spellings.back().before.size() + name.size() + spellings.back().after.size();
    std::vector<std::uint64_t> places;
    (void)readInPieces(descriptor, names, longest + 1, [&](std::string_view piece, std::uint64_t offset) {
        for (std::size_t at = piece.find(name); at != std::string_view::npos; at = piece.find(name, at + 1)) {
            for (const auto& [before, after] : spellings) {
                const std::string_view rest = piece.substr(at + name.size());
                const bool ends = rest.starts_with(after) && rest.substr(after.size()).starts_with('\0');
                if (ends && piece.substr(0, at).ends_with(before))
                    places.push_back(offset + at - before.size());
            }
        }
    });
    return places;
}

bool definesOneAt(const std::vector<std::uint64_t>& places, int descriptor, const ElfW(Shdr) & symbols) {
    bool found = false;
    (void)readInPieces(descriptor, symbols, 0, [&](std::string_view piece, std::uint64_t) {
        ElfW(Sym) symbol;
        for (; !found && piece.size() >= sizeof symbol; piece.remove_prefix(sizeof symbol)) {
            std::memcpy(&symbol, piece.data(), sizeof symbol);
            found = symbol.st_shndx != SHN_UNDEF &&
                    std::find(places.begin(), places.end(), symbol.st_name) != places.end();
        }
    });
    return found;
}

// The program and the files whose code is mapped, as the kernel tells them. The loader would tell them with a
// lock that a child of fork() finds taken for ever when another thread held it.
std::vector<std::string> loadedFiles() {
    constexpr const char* kProgram = "/proc/self/exe";
    char program[4096];
    const ssize_t length = ::readlink(kProgram, program, sizeof program);
    std::vector<std::string> known{std::string(program, length > 0 ? static_cast<std::size_t>(length) : 0)};
    const Data maps = readFileFrom(FileOrigin::system, "/proc/self/maps", kMostMapBytes).value_or(Data());
    for (std::string_view rest(reinterpret_cast<const char*>(maps.data()), maps.size()); !rest.empty();) {
        // "7f0c-7f0d r-xp 00000000 08:01 1234    /usr/lib/libc.so.6"; what the kernel brings along is no
        // file.
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const std::size_t path = line.find('/');
        if (path == line.npos || line.find('x', line.find(' ')) > path) continue;
        if (std::ranges::find(known, line.substr(path)) == known.end()) known.emplace_back(line.substr(path));
    }
    known.front() = kProgram;
    return known;
}

}  // namespace

bool fileDefines(const std::string& file, std::string_view name) {
    const FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!opened) return false;
    const std::vector<SymbolTable> tables = symbolTablesOf(opened.get());
    return std::any_of(tables.begin(), tables.end(), [&](const SymbolTable& table) {
        const std::vector<std::uint64_t> places = placesOf(name, opened.get(), table.names);
        return !places.empty() && definesOneAt(places, opened.get(), table.symbols);
    });
}

bool isSymbolLoaded(const std::string& name) {
    if (name.empty()) return false;
    if (::dlsym(RTLD_DEFAULT, name.c_str()) != nullptr) return true;
    const std::vector<std::string> files = loadedFiles();
    return std::any_of(files.begin(), files.end(),
                       [&name](const std::string& file) { return fileDefines(file, name); });
}

}  // namespace qlsdk::platform
