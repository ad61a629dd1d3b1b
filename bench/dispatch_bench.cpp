// Typed messages and direct calls, beside reflective calls of other object systems; the validity
// test.
#include <benchmark/benchmark.h>

#include "bench/kernel_bench.h"
#include "kernel/internal.h"

#ifdef HAVE_QT
#include <QtCore/QMetaMethod>

#include "bench/qt_peer.h"
#endif
#ifdef HAVE_LUA
#include <lua.hpp>
#endif

namespace kiv::bench {
namespace {

// (int, float, symbol) to a class of so many methods.
void TypedDispatch(benchmark::State &state) {
    const auto count = static_cast<int>(state.range(0));
    Class *const c = sink_class(("bench_of" + std::to_string(count)).c_str(), count);
    Sink *const x = sink_new(c);
    Symbol *const selector = gensym("values");
    Atom atoms[3];
    atom_setlong(&atoms[0], 1);
    atom_setfloat(&atoms[1], 2.0);
    atom_setsym(&atoms[2], gensym("three"));
    for (auto _ : state) {
        typedmess(x, selector, 3, atoms);
    }
    object_free(x);
    class_free(c);
}
BENCHMARK(TypedDispatch)->Arg(5)->Arg(50);

#ifdef HAVE_QT
void QtMetaMethod(benchmark::State &state) {
    QtPeer x;
    const QMetaMethod values =
        x.metaObject()->method(x.metaObject()->indexOfMethod("values(qlonglong,double,QString)"));
    const QString text = QStringLiteral("three");
    for (auto _ : state) {
        values.invoke(&x, Qt::DirectConnection, Q_ARG(qlonglong, 1), Q_ARG(double, 2.0),
                      Q_ARG(QString, text));
    }
}
BENCHMARK(QtMetaMethod);
#endif

#ifdef HAVE_LUA
// The object's method is looked up by name and called with its arguments.
void LuaMethod(benchmark::State &state) {
    lua_State *const lua = luaL_newstate();
    luaL_openlibs(lua);
    luaL_dostring(lua,
                  "Sink = {} Sink.__index = Sink\n"
                  "function Sink.values(self, a, b, c) self.sum = self.sum + a + b end\n"
                  "x = setmetatable({sum = 0}, Sink)");
    lua_getglobal(lua, "x");
    for (auto _ : state) {
        lua_getfield(lua, -1, "values");
        lua_pushvalue(lua, -2);
        lua_pushinteger(lua, 1);
        lua_pushnumber(lua, 2.0);
        lua_pushstring(lua, "three");
        lua_call(lua, 4, 0);
    }
    lua_close(lua);
}
BENCHMARK(LuaMethod);
#endif

void DirectCall(benchmark::State &state) {
    Class *const c = sink_class("bench_direct", 5);
    Sink *const x = sink_new(c);
    Symbol *const selector = gensym("int");
    for (auto _ : state) {
        object_method(x, selector, 1);
    }
    object_free(x);
    class_free(c);
}
BENCHMARK(DirectCall);

void ValidityTest(benchmark::State &state) {
    Class *const c = sink_class("bench_valid", 5);
    Sink *const x = sink_new(c);
    for (auto _ : state) {
        benchmark::DoNotOptimize(object_valid(x));
    }
    object_free(x);
    class_free(c);
}
BENCHMARK(ValidityTest);

}  // namespace
}  // namespace kiv::bench
