"""gdb pretty-printers for Kiv's records.

    (gdb) source tools/gdb_printers.py

Shows symbols by their text, atoms by their value, objects by their class, and lists, tables and
dictionaries by what they hold. Reads memory only: works on core files and on a stopped process.
"""

import gdb
import gdb.printing

MAGIC = 0x68CEBD9B
SHOWN = 200  # elements of a container

(LONG, FLOAT, SYMBOL, OBJECT, SEMICOLON, COMMA, DOLLAR, DOLLAR_SYMBOL) = (1, 2, 3, 4, 10, 11, 12, 13)


def symbol_text(pointer):
    if not pointer:
        return "(none)"
    return pointer["name"].string(errors="replace")


def class_of(obj):
    """The name of a live object's class, or None. The entry before its methods holds the class."""
    if int(obj["magic"]) != MAGIC:
        return None
    header = obj["methods"] - 1
    cls = header["selector"].cast(gdb.lookup_type("Class").pointer())
    return symbol_text(cls["name"])


def atom_text(atom):
    kind, value = int(atom["type"]), atom["value"]
    if kind == LONG:
        return str(int(value["i"]))
    if kind == FLOAT:
        return repr(float(value["f"]))
    if kind == SYMBOL:
        return symbol_text(value["sym"])
    if kind == OBJECT:
        if not value["obj"]:
            return "(no object)"
        obj = value["obj"].cast(gdb.lookup_type("Object").pointer())
        return "<%s %s>" % (class_of(obj.dereference()) or "freed", value["obj"])
    if kind == DOLLAR:
        return "$%d" % int(value["i"])
    if kind == DOLLAR_SYMBOL:
        return "$" + symbol_text(value["sym"])
    return {0: "(nothing)", SEMICOLON: ";", COMMA: ","}.get(kind, "(type %d)" % kind)


def number(value):
    """A number, or the one inside a std::atomic."""
    return int(value) if value.type.strip_typedefs().code == gdb.TYPE_CODE_INT else int(value["_M_i"])


def items(linklist):
    element = linklist["head"]
    for _ in range(SHOWN):
        if not element:
            return
        yield element["item"]
        element = element["next"]


class SymbolPrinter:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return '"%s"' % symbol_text(self.value)


class AtomPrinter(SymbolPrinter):
    def to_string(self):
        return atom_text(self.value)


class ObjectPrinter(SymbolPrinter):
    def to_string(self):
        name = class_of(self.value)
        return "object of class %s" % name if name else "freed object"


class ListPrinter(SymbolPrinter):
    def to_string(self):
        return "list of %d" % number(self.value["count"])

    def children(self):
        for index, item in enumerate(items(self.value)):
            yield "[%d]" % index, item

    def display_hint(self):
        return "array"


class EntriesPrinter(SymbolPrinter):
    """Alternating keys and values, as gdb's maps are."""

    def children(self):
        for index, (key, value) in enumerate(self.entries()):
            yield "key %d" % index, key
            yield "value %d" % index, value

    def display_hint(self):
        return "map"


class TablePrinter(EntriesPrinter):
    def to_string(self):
        return "table of %d slots" % int(self.value["slot_count"])

    def entries(self):
        kind = gdb.lookup_type("HashtabEntry").pointer()
        for slot in range(int(self.value["slot_count"]) if self.value["slots"] else 0):
            linklist = self.value["slots"][slot]
            for item in items(linklist) if linklist else ():
                entry = item.cast(kind)
                yield entry["key"], entry["value"]


class DictionaryPrinter(EntriesPrinter):
    def to_string(self):
        order, packed = self.value["order"], self.value["packed"]
        count = number(order["count"]) if order else int(packed)
        return "dictionary of %d" % count

    def entries(self):
        order, packed = self.value["order"], self.value["packed"]
        if order:
            kind = gdb.lookup_type("DictionaryEntry").pointer()
            for item in items(order):
                entry = item.cast(kind)
                yield symbol_text(entry["key"]), atom_text(entry["value"])
        else:
            pairs = (self.value.address + 1).cast(gdb.lookup_type("kiv::KeyValue").pointer())
            for index in range(int(packed)):
                yield symbol_text(pairs[index]["key"]), atom_text(pairs[index]["value"])


def register():
    printers = gdb.printing.RegexpCollectionPrettyPrinter("kiv")
    for name, printer in (
        ("Symbol", SymbolPrinter),
        ("Atom", AtomPrinter),
        ("Object", ObjectPrinter),
        ("Linklist", ListPrinter),
        ("Hashtab", TablePrinter),
        ("Dictionary", DictionaryPrinter),
    ):
        printers.add_printer(name, "^%s$" % name, printer)
    gdb.printing.register_pretty_printer(None, printers, replace=True)


register()
