// Documents that run: what one message costs between built-in objects, cords and clocks included,
// beside the same graphs under a small dataflow kernel in Lua. Each graph is described once, and
// made from that description on both sides; before it is timed both must compute the same. Items
// are messages that went along a cord.
#include <benchmark/benchmark.h>
#include <kiv/kiv.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/kernel_bench.h"
#include "kernel/internal.h"
#include "sched/internal.h"

#ifdef HAVE_LUA
#include <lua.hpp>
#endif

namespace kiv::bench {
namespace {

// --- Graphs --------------------------------------------------------------------------------------

// Boxes and cords, as a document and as a Lua program. The first box is where a round starts.
class Graph {
  public:
    int box(const std::string &text) {
        boxes_.push_back(text);
        return static_cast<int>(boxes_.size());
    }
    void cord(int from, int outlet, int to, int inlet = 0) {
        cords_.push_back({from, outlet, to, inlet});
    }
    // A box whose last value is the result of a round.
    void result(int from, int outlet) {
        result_ = box("int");
        cord(from, outlet, result_, 1);
    }
    int result_box() const { return result_; }

    std::string document() const {
        std::string boxes;
        for (const std::string &text : boxes_) {
            boxes += std::string(boxes.empty() ? "" : ",") +
                     "{\"box\" : {\"kivclass\" : \"newobj\", \"id\" : \"obj-" +
                     std::to_string(&text - boxes_.data() + 1) + "\", \"text\" : \"" + text +
                     "\"}}\n";
        }
        std::string lines;
        for (const Cord &c : cords_) {
            lines += std::string(lines.empty() ? "" : ",") +
                     "{\"patchline\" : {\"source\" : [\"obj-" + std::to_string(c.from) + "\", " +
                     std::to_string(c.outlet) + "], \"destination\" : [\"obj-" +
                     std::to_string(c.to) + "\", " + std::to_string(c.inlet) + "]}}\n";
        }
        return "{\"patcher\" : {\"boxes\" : [" + boxes + "], \"lines\" : [" + lines + "]}}";
    }
    std::string program() const {
        std::string text = "local b = {}\n";
        for (size_t i = 0; i < boxes_.size(); ++i) {
            text += "b[" + std::to_string(i + 1) + "] = make(\"" + boxes_[i] + "\")\n";
        }
        for (const Cord &c : cords_) {
            text += "connect(b[" + std::to_string(c.from) + "], " + std::to_string(c.outlet + 1) +
                    ", b[" + std::to_string(c.to) + "], " + std::to_string(c.inlet + 1) + ")\n";
        }
        return text + "first, result = b[1], b[" + std::to_string(result_) + "]\n";
    }

  private:
    struct Cord {
        int from, outlet, to, inlet;
    };
    std::vector<std::string> boxes_;
    std::vector<Cord> cords_;
    int result_ = 0;
};

// A graph, how a round of it is started on each side, and how many messages that sends.
struct Work {
    Graph graph;
    std::function<void(Object *first)> round;
    const char *lua_round;
    int64_t messages = 0;
};

// Counts to 100 for every bang: add, compare, and on through a gate as long as it is less.
Work counting_loop() {
    constexpr int64_t count = 100;
    Work work;
    Graph &g = work.graph;
    const int start = g.box("trigger 0");
    const int add = g.box("+ 1");
    const int both = g.box("trigger int int");
    const int less = g.box("< " + std::to_string(count));
    const int gate = g.box("gate");
    g.cord(start, 0, add);
    g.cord(add, 0, both);
    g.cord(both, 1, less);
    g.cord(less, 0, gate);
    g.cord(both, 0, gate, 1);
    g.cord(gate, 0, add);
    g.result(add, 0);
    work.round = [](Object *first) { object_method(first, "bang"_sym); };
    work.lua_round = "first:in1()";
    work.messages = 6 * count;
    return work;
}

// Every number goes to four receivers, whose results go to four each, five times over.
Work fan_out_tree() {
    Work work;
    Graph &g = work.graph;
    std::vector<int> level{g.box("+ 0")};
    for (int depth = 0; depth < 5; ++depth) {
        std::vector<int> next;
        for (const int parent : level) {
            for (int i = 0; i < 4; ++i) {
                next.push_back(g.box("+ " + std::to_string(i)));
                g.cord(parent, 0, next.back());
                ++work.messages;
            }
        }
        level = next;
    }
    g.result(level.back(), 0);
    ++work.messages;
    work.round = [](Object *first) { object_method(first, "int"_sym, int64_t{1}); };
    work.lua_round = "first:in1(1)";
    return work;
}

// A list taken apart, put together, extended, and routed, ten times over.
Work list_pipeline() {
    Work work;
    Graph &g = work.graph;
    int from = g.box("append 3 4");
    for (int section = 0; section < 10; ++section) {
        const int apart = g.box("unpack 0 0 0 0");
        const int together = g.box("pack 0 0 0 0");
        const int append = g.box("append 5");
        const int prepend = g.box("prepend 6");
        const int route = g.box("route 7 6");
        g.cord(from, section == 0 ? 0 : 1, apart);
        for (int i = 0; i < 4; ++i) {
            g.cord(apart, i, together, i);
        }
        g.cord(together, 0, append);
        g.cord(append, 0, prepend);
        g.cord(prepend, 0, route);
        from = route;
        work.messages += 8;
    }
    const int last = g.box("unpack 0 0 0 0 0");
    g.cord(from, 1, last);
    g.result(last, 3);
    work.messages += 2;
    work.round = [](Object *first) {
        Atom atoms[2];
        atom_setlong(&atoms[0], 1);
        atom_setlong(&atoms[1], 2);
        object_method_typed(first, "list"_sym, 2, atoms, nullptr);
    };
    work.lua_round = "first:in1({1, 2})";
    return work;
}

// 20 metros of different intervals, each with a counter and 48 additions behind it. A round is 100
// ms of logical time.
Work metro_graph() {
    [[maybe_unused]] static const bool offline = (time_offline_begin(), true);
    constexpr int round_ms = 100;
    Work work;
    Graph &g = work.graph;
    const int start = g.box("loadbang");
    int last = 0;
    for (int i = 0; i < 20; ++i) {
        const int ms = i % 2 ? 4 : 5;
        const int metro = g.box("metro " + std::to_string(ms));
        g.cord(start, 0, metro);
        last = g.box("counter 1000");
        g.cord(metro, 0, last);
        for (int j = 0; j < 48; ++j) {
            const int add = g.box("+ " + std::to_string(j));
            g.cord(last, 0, add);
            last = add;
        }
        work.messages += round_ms / ms * 49;
    }
    g.result(last, 0);
    work.messages += round_ms / 4;
    work.round = [](Object *) {
        const double end = time_now() + round_ms;
        for (double next = 0; next_clock_time(&next) && next <= end;) {
            time_advance_to(next);
            scheduler_poll();
        }
        time_advance_to(end);
    };
    work.lua_round = "run(100)";
    return work;
}

// --- The runtime ---------------------------------------------------------------------------------

// A graph as a document that is loaded; deleted with it.
class Running {
  public:
    explicit Running(const Graph &graph) {
        const std::string text = graph.document();
        patcher_ = static_cast<Object *>(
            lowload_jpatcher_frombuffer(text.c_str(), static_cast<int64_t>(text.size())));
        first = object_of(1);
        result_ = object_of(graph.result_box());
    }
    ~Running() { object_free(patcher_); }
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    int64_t result() const {
        Sink *const sink = sink_new(sink_class_once());
        outlet_add(outlet_nth(result_, 0), sink);
        object_method(result_, "bang"_sym);
        const int64_t value = sink->sum;
        object_free(sink);
        return value;
    }

  private:
    static Class *sink_class_once() {
        static Class *const c = sink_class("bench_result", 3);
        return c;
    }
    Object *object_of(int box) const {
        return jbox_get_object(
            jpatcher_resolvebox(patcher_, gensym(("obj-" + std::to_string(box)).c_str())));
    }
    Object *patcher_;
    Object *result_;

  public:
    Object *first;
};

void run_here(benchmark::State &state, const Work &work) {
    const Running running(work.graph);
    for (auto _ : state) {
        work.round(running.first);
    }
}

// --- Lua -----------------------------------------------------------------------------------------

#ifdef HAVE_LUA
// What the graphs need, as a Lua program would have it: an outlet is an array of receivers with
// their methods; a message is nothing (a bang), a number, or an array.
constexpr const char *lua_kernel = R"lua(
local classes, loadbangs, queue = {}, {}, {}
local now = 0

local function class(name)
    local c = {}
    c.__index = c
    classes[name] = c
    return c
end

function make(text)
    local words = {}
    for word in text:gmatch("%S+") do
        words[#words + 1] = tonumber(word) or word
    end
    local object = setmetatable({outs = {}}, classes[table.remove(words, 1)])
    object:init(words)
    return object
end

function connect(from, outlet, to, inlet)
    local out = from.outs[outlet]
    out[#out + 1] = {object = to, method = to["in" .. inlet]}
end

function loaded()
    for _, object in ipairs(loadbangs) do
        object:in1()
    end
end

local function send(out, value)
    for i = #out, 1, -1 do
        local receiver = out[i]
        receiver.method(receiver.object, value)
    end
end

local function outlets(object, count)
    for i = 1, count do
        object.outs[i] = {}
    end
    object.out = object.outs[1]
end

local Loadbang = class "loadbang"
function Loadbang:init()
    outlets(self, 1)
    loadbangs[#loadbangs + 1] = self
end
function Loadbang:in1()
    send(self.out)
end

local Int = class "int"
function Int:init(words)
    outlets(self, 1)
    self.value = words[1] or 0
end
function Int:in1(value)
    self.value = value or self.value
    send(self.out, self.value)
end
function Int:in2(value)
    self.value = value
end

local function operator(name, compute)
    local Operator = class(name)
    function Operator:init(words)
        outlets(self, 1)
        self.left, self.right = 0, words[1] or 0
    end
    function Operator:in1(value)
        self.left = value or self.left
        send(self.out, compute(self.left, self.right))
    end
    function Operator:in2(value)
        self.right = value
    end
end
operator("+", function(a, b) return a + b end)
operator("<", function(a, b) return a < b and 1 or 0 end)

local Trigger = class "trigger"
function Trigger:init(words)
    outlets(self, #words)
    self.types = words
end
function Trigger:in1(value)
    for i = #self.types, 1, -1 do
        local type = self.types[i]
        if type == "int" then
            send(self.outs[i], value or 0)
        else
            send(self.outs[i], type)
        end
    end
end

local Gate = class "gate"
function Gate:init()
    outlets(self, 1)
    self.open = 0
end
function Gate:in1(value)
    self.open = value
end
function Gate:in2(value)
    if self.open > 0 then
        send(self.outs[self.open], value)
    end
end

local Counter = class "counter"
function Counter:init(words)
    outlets(self, 2)
    self.count, self.maximum, self.rounds = -1, words[1], 0
end
function Counter:in1()
    if self.count >= self.maximum then
        self.count = 0
        self.rounds = self.rounds + 1
        send(self.outs[2], self.rounds)
    else
        self.count = self.count + 1
    end
    send(self.out, self.count)
end

local Append = class "append"
function Append:init(words)
    outlets(self, 1)
    self.addition = words
end
function Append:in1(list)
    local result = table.move(list, 1, #list, 1, {})
    send(self.out, table.move(self.addition, 1, #self.addition, #result + 1, result))
end

local Prepend = class "prepend"
Prepend.init = Append.init
function Prepend:in1(list)
    local result = table.move(self.addition, 1, #self.addition, 1, {})
    send(self.out, table.move(list, 1, #list, #result + 1, result))
end

local Unpack = class "unpack"
function Unpack:init(words)
    outlets(self, #words)
end
function Unpack:in1(list)
    for i = math.min(#list, #self.outs), 1, -1 do
        send(self.outs[i], list[i])
    end
end

local Pack = class "pack"
function Pack:init(words)
    outlets(self, 1)
    self.values = words
end
function Pack:in1(value)
    self.values[1] = value
    send(self.out, table.move(self.values, 1, #self.values, 1, {}))
end
for i = 2, 4 do
    Pack["in" .. i] = function(self, value) self.values[i] = value end
end

local Route = class "route"
function Route:init(words)
    outlets(self, #words + 1)
    self.keys = words
end
function Route:in1(list)
    for i, key in ipairs(self.keys) do
        if key == list[1] then
            send(self.outs[i], table.move(list, 2, #list, 1, {}))
            return
        end
    end
    send(self.outs[#self.outs], list)
end

-- A heap of {time, object}, the first due on top.
local function schedule(time, object)
    local i = #queue + 1
    local entry = {time = time, object = object}
    while i > 1 and queue[i // 2].time > time do
        queue[i] = queue[i // 2]
        i = i // 2
    end
    queue[i] = entry
end
local function take()
    local top, last = queue[1], table.remove(queue)
    local count, i = #queue, 1
    if count > 0 then
        while 2 * i <= count do
            local child = 2 * i
            if child < count and queue[child + 1].time < queue[child].time then
                child = child + 1
            end
            if last.time <= queue[child].time then
                break
            end
            queue[i] = queue[child]
            i = child
        end
        queue[i] = last
    end
    return top
end
function run(ms)
    local stop = now + ms
    while queue[1] and queue[1].time <= stop do
        local entry = take()
        now = entry.time
        entry.object:tick()
    end
    now = stop
end

local Metro = class "metro"
function Metro:init(words)
    outlets(self, 1)
    self.interval = words[1]
end
function Metro:in1()
    self:tick()
end
function Metro:tick()
    schedule(now + self.interval, self)
    send(self.out)
end
)lua";

class LuaRunning {
  public:
    explicit LuaRunning(const Work &work) {
        luaL_openlibs(lua_);
        const std::string program = lua_kernel + work.graph.program() +
                                    "loaded()\nfunction round() " + work.lua_round + " end";
        if (luaL_dostring(lua_, program.c_str())) {
            std::fprintf(stderr, "%s\n", lua_tostring(lua_, -1));
            std::abort();
        }
        lua_getglobal(lua_, "round");
    }
    ~LuaRunning() { lua_close(lua_); }
    LuaRunning(const LuaRunning &) = delete;
    LuaRunning &operator=(const LuaRunning &) = delete;

    void round() {
        lua_pushvalue(lua_, -1);
        lua_call(lua_, 0, 0);
    }
    int64_t result() {
        lua_getglobal(lua_, "result");
        lua_getfield(lua_, -1, "value");
        const int64_t value = lua_tointeger(lua_, -1);
        lua_pop(lua_, 2);
        return value;
    }

  private:
    lua_State *lua_ = luaL_newstate();
};

// Three rounds on each side give the same result.
bool agree(const Work &work) {
    const Running here(work.graph);
    LuaRunning there(work);
    for (int i = 0; i < 3; ++i) {
        work.round(here.first);
        there.round();
    }
    return here.result() == there.result() && here.result() != 0;
}

void run_in_lua(benchmark::State &state, const Work &work) {
    LuaRunning running(work);
    for (auto _ : state) {
        running.round();
    }
}
#endif

// --- The benchmarks ------------------------------------------------------------------------------

void Kiv(benchmark::State &state, Work (*make)()) {
    const Work work = make();
    run_here(state, work);
    state.SetItemsProcessed(state.iterations() * work.messages);
}

#ifdef HAVE_LUA
void Lua(benchmark::State &state, Work (*make)()) {
    const Work work = make();
    if (!agree(work)) {
        state.SkipWithError("the two sides compute different results");
        return;
    }
    run_in_lua(state, work);
    state.SetItemsProcessed(state.iterations() * work.messages);
}
#define RUNNING_BENCHMARK(graph)          \
    BENCHMARK_CAPTURE(Kiv, graph, graph); \
    BENCHMARK_CAPTURE(Lua, graph, graph)
#else
#define RUNNING_BENCHMARK(graph) BENCHMARK_CAPTURE(Kiv, graph, graph)
#endif

RUNNING_BENCHMARK(counting_loop);
RUNNING_BENCHMARK(fan_out_tree);
RUNNING_BENCHMARK(list_pipeline);
RUNNING_BENCHMARK(metro_graph);

}  // namespace
}  // namespace kiv::bench
