// The older text form of patcher documents: message text whose lines make a patcher step by step.
//
//     kiv v2;
//     #N vpatcher LEFT TOP RIGHT BOTTOM;      a patcher begins
//     #P newex X Y WIDTH FONT metro 500;      an object box
//     #P message X Y WIDTH FONT text;         likewise "comment"
//     #P toggle X Y SIZE;                     a box of any other class
//     #P connect 1 0 0 0;                     box, outlet, box, inlet
//     #P fasten 1 0 0 0 X Y ...;              the same with bend points
//     #P hidden connect 1 0 0 0;              what follows is hidden
//     #P pop;                                 the patcher ends
//
// Boxes are counted from the newest one back, which is also their order from front to back. A
// patcher that ended inside another is the content of the next "#P newobj" box. "#N CLASS ..." and
// "#T ..." before such a box are kept as the saved text its object is made from. The lines become
// the dictionary that the present form would have given, which is then loaded like any other.
// Main thread.
#include "patcher/text_form.h"

#include <kiv/atom.h>
#include <kiv/binbuf.h>
#include <kiv/console.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "containers/internal.h"
#include "kernel/internal.h"
#include "patcher/creation.h"
#include "patcher/document.h"
#include "patcher/fields.h"

namespace kiv {

namespace {

constexpr char beginning[] = "kiv v2;";
constexpr size_t most_levels = 100;  // of patchers inside one another

using Words = Vector<Atom>;

// One line of the text without its semicolon; `first` is the word it is told by.
struct Line {
    const Words &words;

    int32_t count() const { return static_cast<int32_t>(words.size()); }
    bool is(int32_t index, Symbol *word) const {
        return index < count() && words[size_t(index)].type == TypeSymbol &&
               words[size_t(index)].value.sym == word;
    }
    bool numbers(int32_t from, int32_t wanted) const {
        return from + wanted <= count() &&
               std::all_of(words.begin() + from, words.begin() + from + wanted,
                           [](const Atom &atom) { return atom_is_number(atom); });
    }
    double number(int32_t index) const { return atom_getfloat(&words[size_t(index)]); }
};

// A patcher whose lines are being read.
struct Level {
    Owned<Dictionary> patcher;
    Vector<Owned<Dictionary>> boxes;  // oldest first
    Vector<Owned<Dictionary>> lines;
};

class Reader {
  public:
    explicit Reader(const char *file_name) : file_name_(file_name ? file_name : "") {}
    void read(Binbuf *text);
    // {"patcher": ...}, or null when there was no "#N vpatcher".
    Owned<Dictionary> finish();

  private:
    void line(const Words &words);
    bool maker_line(const Line &line);
    bool patcher_line(const Line &line, int32_t at, bool hidden);
    bool begin(const Line &line);
    void end();
    bool box(const Line &line, int32_t at, bool hidden);
    bool cord(const Line &line, int32_t at, bool hidden);
    const Dictionary *counted_back(double index) const;
    void refuse(const Words &words) const;

    const char *file_name_;
    Vector<Level> levels_;       // innermost last
    Owned<Dictionary> content_;  // a patcher that has ended, until a box takes it
    Words saved_;                // "#N CLASS ..." and "#T ..." lines, until a box takes them
};

// --- Text ----------------------------------------------------------------------------------------

// The words from `from` on as box text. A mark that was escaped in the line, so as not to end it,
// is a plain mark there.
Text box_text(const Words &words, int32_t from) {
    const Owned<Binbuf> buffer(binbuf_new());
    for (size_t i = size_t(from); i < words.size(); ++i) {
        Atom atom = words[i];  // appending rewrites symbols that stand for marks
        binbuf_append(buffer.get(), nullptr, 1, &atom);
    }
    char *text = nullptr;
    int64_t size = 0;
    if (binbuf_totext(buffer.get(), &text, &size) != 0) {
        throw std::bad_alloc();
    }
    Text copy(text);
    sysmem_freeptr(text);
    return copy;
}

// --- Lines ---------------------------------------------------------------------------------------

void Reader::read(Binbuf *text) {
    int64_t type_offset = 0;
    int64_t value_offset = 0;
    Words words;
    Atom atom;
    while (binbuf_getatom(text, &type_offset, &value_offset, &atom) == 0) {
        if (atom.type != TypeSemicolon) {
            words.push_back(atom);
            continue;
        }
        line(words);
        words.clear();
    }
    line(words);
}

void Reader::line(const Words &words) {
    const Line line{words};
    if (words.empty() || (levels_.empty() && line.is(0, "kiv"_sym))) {
        return;
    }
    const bool understood = line.is(0, "#N"_sym) || line.is(0, "#T"_sym)
                                ? maker_line(line)
                                : line.is(0, "#P"_sym) && patcher_line(line, 1, false);
    if (!understood) {
        refuse(words);
    }
}

void Reader::refuse(const Words &words) const {
    error("%s: line not understood: %s", file_name_, box_text(words, 0).c_str());
}

bool Reader::maker_line(const Line &line) {
    if (line.is(1, "vpatcher"_sym)) {
        return begin(line);
    }
    if (levels_.empty() || line.count() < 2) {
        return false;
    }
    Atom semicolon;
    atom_setsym(&semicolon, ";"_sym);
    saved_.insert(saved_.end(), line.words.begin(), line.words.end());
    saved_.push_back(semicolon);
    return true;
}

bool Reader::patcher_line(const Line &line, int32_t at, bool hidden) {
    if (levels_.empty()) {
        return false;
    }
    if (line.is(at, "hidden"_sym)) {
        return !hidden && patcher_line(line, at + 1, true);
    }
    if (line.is(at, "pop"_sym)) {
        end();
        return true;
    }
    if (line.is(at, "connect"_sym) || line.is(at, "fasten"_sym)) {
        return cord(line, at + 1, hidden);
    }
    // How the window that showed the patcher was set up.
    return line.is(at, "window"_sym) || box(line, at, hidden);
}

bool Reader::begin(const Line &line) {
    if (levels_.size() >= most_levels) {
        error("%s: patchers are nested too deeply", file_name_);
        return true;
    }
    Level level;
    level.patcher.reset(dictionary_new());
    if (!level.patcher) {
        throw std::bad_alloc();
    }
    if (line.numbers(2, 4)) {
        Atom rect[4];
        atom_setfloat(&rect[0], line.number(2));
        atom_setfloat(&rect[1], line.number(3));
        atom_setfloat(&rect[2], line.number(4) - line.number(2));
        atom_setfloat(&rect[3], line.number(5) - line.number(3));
        dictionary_appendatoms(level.patcher.get(), "rect"_sym, 4, rect);
    }
    levels_.push_back(std::move(level));
    return true;
}

template <class Iterator>
void store_elements(Dictionary *patcher, Symbol *key, Symbol *element, Iterator at, Iterator end) {
    Elements elements;
    bool done = true;
    for (; at != end; ++at) {
        done &= elements.add(wrapped(element, std::move(*at)));
    }
    if (!done || !elements.store(patcher, key)) {
        throw std::bad_alloc();
    }
}

// The patcher is what the next box holds; the outermost one stays, to be finished.
void Reader::end() {
    Level &level = levels_.back();
    store_elements(level.patcher.get(), "boxes"_sym, "box"_sym, level.boxes.rbegin(),
                   level.boxes.rend());
    store_elements(level.patcher.get(), "lines"_sym, "patchline"_sym, level.lines.begin(),
                   level.lines.end());
    content_ = std::move(level.patcher);
    levels_.pop_back();
    saved_.clear();
}

Owned<Dictionary> Reader::finish() {
    while (!levels_.empty()) {
        end();
    }
    return content_ ? wrapped("patcher"_sym, std::move(content_)) : nullptr;
}

// --- Boxes and cords -----------------------------------------------------------------------------

// "user" stands before the names of classes that came later. Object boxes, messages and comments
// have text behind position, width and font; the others further numbers of their own.
bool Reader::box(const Line &line, int32_t at, bool hidden) {
    at += line.is(at, "user"_sym) ? 1 : 0;
    if (at >= line.count() || line.words[size_t(at)].type != TypeSymbol ||
        !line.numbers(at + 1, 2)) {
        return false;
    }
    Symbol *name = line.words[size_t(at)].value.sym;
    const bool object = name == "newobj"_sym || name == "newex"_sym;
    const bool port = name == "inlet"_sym || name == "outlet"_sym;
    const bool text = object || name == "message"_sym || name == "comment"_sym;
    if (text && !line.numbers(at + 1, 4)) {
        return false;
    }
    Owned<Dictionary> box(dictionary_new());
    if (!box) {
        throw std::bad_alloc();
    }
    Level &level = levels_.back();
    char id[32];
    std::snprintf(id, sizeof id, "obj-%zu", level.boxes.size() + 1);
    dictionary_appendsym(box.get(), "kivclass"_sym, object || port ? "newobj"_sym : name);
    dictionary_appendsym(box.get(), "id"_sym, gensym(id));
    if (text || port) {
        dictionary_appendstring(box.get(), "text"_sym,
                                text ? box_text(line.words, at + 5).c_str() : name->name);
    }
    Atom rect[4];
    atom_setfloat(&rect[0], line.number(at + 1));
    atom_setfloat(&rect[1], line.number(at + 2));
    atom_setfloat(&rect[2], line.numbers(at + 3, 1) ? line.number(at + 3) : 20.);
    atom_setfloat(&rect[3], 20.);
    dictionary_appendatoms(box.get(), "patching_rect"_sym, 4, rect);
    if (hidden) {
        dictionary_appendlong(box.get(), "hidden"_sym, 1);
    }
    if (object && content_) {
        dictionary_appenddictionary(box.get(), "patcher"_sym, content_.release());
    } else if (object && !saved_.empty()) {
        dictionary_appendatoms(box.get(), "save"_sym, static_cast<int32_t>(saved_.size()),
                               saved_.data());
    }
    saved_.clear();
    level.boxes.push_back(std::move(box));
    return true;
}

const Dictionary *Reader::counted_back(double index) const {
    const auto &boxes = levels_.back().boxes;
    return index >= 0 && index < static_cast<double>(boxes.size())
               ? boxes[boxes.size() - 1 - static_cast<size_t>(index)].get()
               : nullptr;
}

bool Reader::cord(const Line &line, int32_t at, bool hidden) {
    if (!line.numbers(at, 4)) {
        return false;
    }
    Owned<Dictionary> cord(dictionary_new());
    if (!cord) {
        throw std::bad_alloc();
    }
    Symbol *const ends[] = {"source"_sym, "destination"_sym};
    for (int32_t i = 0; i < 2; ++i) {
        Symbol *id = nullptr;
        if (dictionary_getsym(counted_back(line.number(at + 2 * i)), "id"_sym, &id) != ErrorNone) {
            return false;
        }
        Atom end[2];
        atom_setsym(&end[0], id);
        end[1] = line.words[size_t(at + 2 * i + 1)];
        dictionary_appendatoms(cord.get(), ends[i], 2, end);
    }
    const int32_t points = line.count() - at - 4;
    if (points > 0 && line.numbers(at + 4, points)) {
        dictionary_appendatoms(cord.get(), "midpoints"_sym, points, &line.words[size_t(at + 4)]);
    }
    if (hidden) {
        dictionary_appendlong(cord.get(), "hidden"_sym, 1);
    }
    levels_.back().lines.push_back(std::move(cord));
    return true;
}

}  // namespace

bool text_form_is(const char *text, int64_t length) noexcept {
    constexpr size_t size = sizeof beginning - 1;
    return length >= static_cast<int64_t>(size) && std::memcmp(text, beginning, size) == 0;
}

Dictionary *text_form_read(const char *file_name, const char *text, int64_t length) noexcept {
    const char *name = file_name ? file_name : "";
    const Owned<Binbuf> words(binbuf_new());
    char *start = const_cast<char *>(text);  // read, never written
    if (!words || binbuf_text(words.get(), &start, length) != 0) {
        error("%s: can't load, out of memory", name);
        return nullptr;
    }
    try {
        Reader reader(name);
        reader.read(words.get());
        Owned<Dictionary> document = reader.finish();
        if (!document) {
            error("patcher file %s missing patcher!", name);
        }
        return document.release();
    } catch (const std::bad_alloc &) {
        error("%s: can't load, out of memory", name);
        return nullptr;
    }
}

}  // namespace kiv
