#include "app/application.h"

#include <kiv/kiv.h>

#include <atomic>
#include <limits>
#include <type_traits>

#include "console/internal.h"
#include "kernel/internal.h"
#include "patcher/internal.h"
#include "sched/internal.h"

namespace kiv::app {

namespace {

std::atomic<bool> quitting{false};

struct Application {
    Object ob;
};

void usecontext(Application *, int64_t flag) {
    utils_usecontext(flag != 0 ? 1 : 0);
}

void size(Application *) {
    constexpr long long static_slots = symbol_static_slots;
    post("%lld static symbols", static_slots);
    post("%lld symbols in memory", static_slots + static_cast<long long>(symbols_count_dynamic()));
}

void objectfile(Application *x, Symbol *selector, int32_t argc, Atom *argv) {
    Symbol *class_name = nullptr;
    if (atom_arg_getsym(&class_name, 0, argc, argv) != ErrorNone || !*class_name->name) {
        object_error(x, "missing arguments for message \"%s\"", selector->name);
        return;
    }
    Symbol *file_name = ""_sym;
    atom_arg_getsym(&file_name, 1, argc, argv);
    nametab_add(class_name, *file_name->name ? file_name : class_name);
}

using Throttle = uint32_t (*)(uint32_t value, uint32_t *previous);
constexpr uint32_t read_only = std::numeric_limits<uint32_t>::max();

template <Throttle throttle>
uint32_t throttle_get() {
    return throttle(read_only, nullptr);
}
template <Throttle throttle>
void throttle_set(int64_t value) {
    if (value >= 1 && value < read_only) {
        throttle(static_cast<uint32_t>(value), nullptr);
    }
}

// A tuning value as an attribute of the application. A value out of range, or one that is no
// number, changes nothing.
template <auto get, auto set>
struct Tuning {
    static ErrorCode read(Application *, void *, int32_t *argc, Atom **argv) noexcept {
        uint8_t allocated = 0;
        if (const ErrorCode failed = atom_alloc(argc, argv, &allocated); failed != ErrorNone) {
            return failed;
        }
        if constexpr (std::is_floating_point_v<decltype(get())>) {
            return atom_setfloat(*argv, get());
        } else {
            return atom_setlong(*argv, get());
        }
    }
    static ErrorCode write(Application *, void *, int32_t argc, Atom *argv) noexcept {
        if (argc > 0 && (argv->type == TypeLong || argv->type == TypeFloat)) {
            if constexpr (std::is_floating_point_v<decltype(get())>) {
                set(atom_getfloat(argv));
            } else {
                set(atom_getlong(argv));
            }
        }
        return ErrorNone;
    }
    static void add(Class *c, const char *name) {
        Symbol *const type = std::is_floating_point_v<decltype(get())> ? "float64"_sym : "long"_sym;
        class_addattr(c, attribute_new(name, type, 0, method(read), method(write)));
    }
};

template <Throttle throttle>
void get_throttle(Application *, Object *receiver) {
    Atom value;
    atom_setlong(&value, throttle_get<throttle>());
    typedmess(receiver, "int"_sym, 1, &value);
}

// Messages that go straight to what they name.
template <void (*set)(bool)>
void switch_message(Application *, int64_t on) {
    set(on != 0);
}
template <void (*call)()>
void plain_message(Application *) {
    call();
}

// --- Message debugging ---------------------------------------------------------------------------

// Posts a message that is about to be delivered, from the object that sends it.
bool show_message(const MessageEntry *entry, Object *receiver, void *) {
    char *text = nullptr;
    int64_t size = 0;
    atom_gettext(entry->argc, entry->argv, &size, &text, 0);
    const char *const name = entry->selector ? entry->selector->name : "";
    object_post(entry->sender, "%s: %s%s%s", object_classname(receiver)->name, name,
                text && *text ? " " : "", text ? text : "");
    sysmem_freeptr(text);
    return false;
}

void debug_messages(bool on) {
    message_debugging_set(on ? show_message : nullptr, nullptr);
}

}  // namespace

void application_start() {
    Class *const c =
        class_new("kiv", nullptr, nullptr, static_cast<int32_t>(sizeof(Application)), nullptr, 0);
    class_addmethod(c, method(usecontext), "usecontext", TypeLong, 0);
    class_addmethod(c, method(size), "size", 0);
    class_addmethod(c, method(objectfile), "objectfile", TypeGimme, 0);
    Tuning<throttle_get<sched_setpollthrottle>, throttle_set<sched_setpollthrottle>>::add(
        c, "setpollthrottle");
    Tuning<throttle_get<sched_setqueuethrottle>, throttle_set<sched_setqueuethrottle>>::add(
        c, "setqueuethrottle");
    Tuning<sysqelem_throttle, sysqelem_throttle_set>::add(c, "setsysqelemthrottle");
    Tuning<slop, slop_set>::add(c, "setslop");
    Tuning<interval, interval_set>::add(c, "setinterval");
    class_addmethod(c, method(get_throttle<sched_setpollthrottle>), "getpollthrottle", TypeObject,
                    0);
    class_addmethod(c, method(get_throttle<sched_setqueuethrottle>), "getqueuethrottle", TypeObject,
                    0);
    class_addmethod(c, method(switch_message<overdrive_set>), "overdrive", TypeLong, 0);
    class_addmethod(c, method(switch_message<queue_statistics>), "queuestatistics", TypeLong, 0);
    class_addmethod(c, method(switch_message<low_queue_disable>), "disablequeue", TypeLong, 0);
    class_addmethod(c, method(switch_message<creation_suspend>), "suspendloading", TypeLong, 0);
    class_addmethod(c, method(switch_message<loadbang_debug>), "loadbangdebug", TypeLong, 0);
    class_addmethod(c, method(switch_message<debug_messages>), "debugmessages", TypeLong, 0);
    class_addmethod(c, method(switch_message<console_set_echo>), "echoconsole", TypeLong, 0);
    class_addmethod(c, method(switch_message<console_set_immediate>), "immediateconsole", TypeLong,
                    0);
    class_addmethod(c, method(plain_message<console_clear>), "clearconsole", 0);
    class_addmethod(c, method(plain_message<overflow_alert>), "overflowalert", 0);
    class_addmethod(c, method(plain_message<quit_request>), "quit", 0);
    class_register("nobox"_sym, c);
    "kiv"_sym->thing = object_alloc(c);
}

void quit_request() {
    quitting.store(true);
    main_wake();
}

bool quit_requested() {
    return quitting.load();
}

}  // namespace kiv::app
