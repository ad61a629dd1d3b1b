// Attributes by name, beside the properties of other object systems.
#include <benchmark/benchmark.h>

#include "bench/kernel_bench.h"

#ifdef HAVE_GLIB
#include <glib-object.h>
#endif
#ifdef HAVE_QT
#include <QtCore/QVariant>

#include "bench/qt_peer.h"
#endif

namespace kiv::bench {
namespace {

Sink *attribute_sink() {
    static Sink *const x = sink_new(sink_class("bench_attribute", 5));
    return x;
}

void Set(benchmark::State &state) {
    Sink *const x = attribute_sink();
    Symbol *const name = gensym("value");
    int64_t n = 0;
    for (auto _ : state) {
        object_attr_setlong(x, name, ++n & 0xffff);
    }
}
BENCHMARK(Set);

void Get(benchmark::State &state) {
    Sink *const x = attribute_sink();
    Symbol *const name = gensym("value");
    for (auto _ : state) {
        benchmark::DoNotOptimize(object_attr_getlong(x, name));
    }
}
BENCHMARK(Get);

#ifdef HAVE_GLIB
struct GPeer {
    GObject object;
    gint value;
};
struct GPeerClass {
    GObjectClass object_class;
};
void g_peer_set(GObject *object, guint, const GValue *value, GParamSpec *) {
    reinterpret_cast<GPeer *>(object)->value = g_value_get_int(value);
}
void g_peer_get(GObject *object, guint, GValue *value, GParamSpec *) {
    g_value_set_int(value, reinterpret_cast<GPeer *>(object)->value);
}
void g_peer_class_init(gpointer c, gpointer) {
    auto *const object_class = static_cast<GObjectClass *>(c);
    object_class->set_property = g_peer_set;
    object_class->get_property = g_peer_get;
    g_object_class_install_property(
        object_class, 1,
        g_param_spec_int("value", nullptr, nullptr, 0, G_MAXINT, 0, G_PARAM_READWRITE));
}
GObject *g_peer() {
    static GObject *const x = static_cast<GObject *>(g_object_new(
        g_type_register_static_simple(G_TYPE_OBJECT, "BenchPeer", sizeof(GPeerClass),
                                      g_peer_class_init, sizeof(GPeer), nullptr, GTypeFlags{}),
        nullptr));
    return x;
}

void SetGObject(benchmark::State &state) {
    GObject *const x = g_peer();
    gint n = 0;
    for (auto _ : state) {
        g_object_set(x, "value", ++n & 0xffff, nullptr);
    }
}
BENCHMARK(SetGObject);

void GetGObject(benchmark::State &state) {
    GObject *const x = g_peer();
    gint n = 0;
    for (auto _ : state) {
        g_object_get(x, "value", &n, nullptr);
        benchmark::DoNotOptimize(n);
    }
}
BENCHMARK(GetGObject);
#endif

#ifdef HAVE_QT
void SetQt(benchmark::State &state) {
    QtPeer x;
    int n = 0;
    for (auto _ : state) {
        x.setProperty("value", ++n & 0xffff);
    }
}
BENCHMARK(SetQt);

void GetQt(benchmark::State &state) {
    const QtPeer x;
    for (auto _ : state) {
        benchmark::DoNotOptimize(x.property("value").toInt());
    }
}
BENCHMARK(GetQt);
#endif

}  // namespace
}  // namespace kiv::bench
