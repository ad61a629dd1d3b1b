// Message text from and to files.
//
// The text form is what binbuf_totext gives, with a line for each message that a semicolon ends.
// The binary form: eight bytes that name it, the number of atoms as 32 bits, then for each atom a
// byte with its tag and its value: 64 bits, or for symbols a 32-bit length and the bytes of the
// name. Numbers are little-endian. An object has no meaning in a file and becomes its class name.
#include <kiv/console.h>
#include <kiv/object.h>

#include <cstring>
#include <string_view>

#include "containers/binbuf_record.h"
#include "files/internal.h"
#include "kernel/internal.h"

namespace kiv {

namespace {

constexpr std::string_view magic("KIVBB\x01\r\n", 8);
constexpr size_t largest_file = 0x10000000;

bool is_symbol_tag(uint16_t tag) noexcept {
    return tag == TypeSymbol || tag == TypeDollarSymbol;
}

template <class Integer>
void put(Text &out, Integer value) {
    for (size_t i = 0; i < sizeof value; ++i) {
        out.push_back(static_cast<char>(value >> (8 * i) & 0xff));
    }
}

void put_symbol(Text &out, std::string_view name) {
    put(out, static_cast<uint32_t>(name.size()));
    out.append(name);
}

void put_atom(Text &out, const Atom &atom) {
    const bool object = atom.type == TypeObject;
    out.push_back(static_cast<char>(object ? AtomType{TypeSymbol} : atom.type));
    if (object) {
        const Symbol *name = object_classname(atom.value.obj);
        put_symbol(out, name ? name->name : "<nogood_object>");
    } else if (is_symbol_tag(atom.type)) {
        put_symbol(out, atom.value.sym ? atom.value.sym->name : "");
    } else {
        uint64_t word;
        std::memcpy(&word, &atom.value, sizeof word);
        put(out, word);
    }
}

// Takes values off the front of a file; once it finds too few bytes it gives zeros and `failed`.
class Bytes {
  public:
    explicit Bytes(std::string_view bytes) noexcept : bytes_(bytes) {}
    bool failed() const noexcept { return failed_; }
    size_t left() const noexcept { return bytes_.size(); }
    std::string_view take(size_t count) noexcept {
        if (count > bytes_.size()) {
            failed_ = true;
            return {};
        }
        const std::string_view taken = bytes_.substr(0, count);
        bytes_.remove_prefix(count);
        return taken;
    }
    uint64_t number(size_t size) noexcept {
        uint64_t value = 0;
        const std::string_view taken = take(size);
        for (size_t i = taken.size(); i > 0; --i) {
            value = value << 8 | static_cast<unsigned char>(taken[i - 1]);
        }
        return value;
    }

  private:
    std::string_view bytes_;
    bool failed_ = false;
};

bool take_atom(Bytes &bytes, Atom *atom) {
    atom->type = static_cast<AtomType>(bytes.number(1));
    if (is_symbol_tag(atom->type)) {
        const Text name(bytes.take(bytes.number(4)));
        atom->value.sym = gensym(name.c_str());
    } else {
        const uint64_t word = bytes.number(8);
        std::memcpy(&atom->value, &word, sizeof word);
    }
    const bool known = atom->type == TypeLong || atom->type == TypeFloat ||
                       is_symbol_tag(atom->type) || atom->type == TypeSemicolon ||
                       atom->type == TypeComma || atom->type == TypeDollar;
    return known && !bytes.failed();
}

int32_t read_into(Binbuf *buf, const char *file_name, Text &file, bool binary) {
    Binbuf *read = binbuf_new();
    if (!read) {
        throw std::bad_alloc();
    }
    bool good;
    if (binary) {
        good = store_read_binary(read->store, file);
        if (!good) {
            error("%s: bad magic number", file_name);
        }
    } else {
        char *text = file.data();
        good = binbuf_text(read, &text, static_cast<int64_t>(file.size())) == 0;
        if (!good) {
            error("%s: a word is too long for message text", file_name);
        }
    }
    if (good) {
        std::swap(buf->store, read->store);
        binbuf_counted(buf);
    }
    object_free(read);
    return good ? 0 : -1;
}

// A file that is too large is read as far as it goes.
int32_t read_file(const char *file_name, int16_t path, Text &file) {
    const int32_t result = file_read_all(file_name, path, file);
    if (result != 0) {
        error("%s: can't be read (error %d)", file_name, result);
        return result;
    }
    if (file.size() > largest_file) {
        error("%s: too large for binbuf to handle, truncating", file_name);
        file.resize(largest_file);
    }
    return 0;
}

}  // namespace

Text store_write_binary(const BinbufStore *store) {
    Text out(magic);
    put(out, static_cast<uint32_t>(store->count));
    Atom atom;
    for (int64_t i = 0; store_atom(store, i, &atom); ++i) {
        put_atom(out, atom);
    }
    return out;
}

bool store_read_binary(BinbufStore *store, std::string_view file) {
    Bytes bytes(file);
    if (bytes.take(magic.size()) != magic) {
        return false;
    }
    const uint64_t count = bytes.number(4);
    // Each atom takes five bytes at least: a damaged count makes no great array.
    if (bytes.failed() || count > bytes.left() / 5) {
        return false;
    }
    Vector<Atom> atoms(count);
    for (Atom &atom : atoms) {
        if (!take_atom(bytes, &atom)) {
            return false;
        }
    }
    return store_append(store, static_cast<int32_t>(count), atoms.data());
}

}  // namespace kiv

using namespace kiv;

int32_t binbuf_read(Binbuf *buf, const char *file_name, int16_t path, int32_t binary) noexcept {
    if (!buf || !file_name) {
        return -1;
    }
    try {
        Text file;
        const int32_t result = read_file(file_name, path, file);
        return result != 0 ? result : read_into(buf, file_name, file, binary != 0);
    } catch (const std::bad_alloc &) {
        error("%s: out of memory", file_name);
        return -1;
    }
}

int32_t binbuf_write(Binbuf *buf, const char *file_name, int16_t path, int32_t binary) noexcept {
    if (!buf || !file_name) {
        return -1;
    }
    try {
        Text file = binary ? store_write_binary(buf->store) : store_write(buf->store, '\n');
        if (!binary) {
            file.push_back('\n');
        }
        const int32_t result =
            file_write_all(file_name, path, file.data(), static_cast<int64_t>(file.size()));
        if (result != 0) {
            error("%s: can't be written (error %d)", file_name, result);
        }
        return result;
    } catch (const std::bad_alloc &) {
        error("%s: out of memory", file_name);
        return -1;
    }
}

int32_t readtohandle(const char *file_name, int16_t path, char ***handle, int64_t *size) noexcept {
    if (handle) {
        *handle = nullptr;
    }
    if (size) {
        *size = 0;
    }
    if (!file_name || !handle) {
        return -1;
    }
    try {
        Text file;
        const int32_t result = file_read_all(file_name, path, file);
        if (result != 0) {
            return result;
        }
        const auto length = static_cast<int64_t>(file.size());
        *handle = sysmem_newhandle(length);
        if (!*handle) {
            return -1;
        }
        if (length > 0) {
            std::memcpy(**handle, file.data(), file.size());
        }
        if (size) {
            *size = length;
        }
        return 0;
    } catch (const std::bad_alloc &) {
        return -1;
    }
}
