// SPDX-License-Identifier: MIT
// usage: sample_report json|html|diff SITES EVENTS - writes the report of three random processes,
// or compares it with that of smaller ones: every kind of fault, and texts that try to break out of
// wherever they are put.
#include <cstdio>
#include <cstdlib>
#include <random>

#include "world.h"

using namespace vektrace;

namespace {

const char *const hostile[] = {
    "</script><script>document.title = 'hit'</script>",
    "<!--<script>",
    "<img src=x onerror=\"document.title = 'hit'\">",
    "]]>&lt;&#60;\"'`\\u003c",
    "\xff\xfe broken \xc3(\x01",
    "operator<<(std::ostream &, Ünïcode)",
};
const char *const verbs[] = {"load", "parse", "copy", "format", "read", "merge", "queue"};
const char *const nouns[] = {"config", "header", "message", "session", "route"};

Place place_of(size_t number)
{
    const std::string noun = nouns[number % std::size(nouns)];
    const std::string verb = number % 40 == 39 ? "hidden" : verbs[number / 3 % std::size(verbs)];
    const auto line = static_cast<unsigned>(10 + number);
    return {verb + "_" + noun + "_" + std::to_string(number), "src/" + noun + ".c", line};
}

StackId stack_of(World &world, size_t number)
{
    Places site = {place_of(number)};
    if (number < std::size(hostile)) {
        site[0].function = hostile[number];
    } else if (number % 13 == 12) {
        site[0] = {};
    } else if (number % 5 == 0) {
        site.push_back(place_of(number + 1));
    }
    std::vector<FrameId> chain = {
        world.frame("/usr/lib/libveklib.so.1", {{"vek_str_dict_put_int", "", 0}}),
        world.frame(number % 4 == 0 ? "/lib/libroute.so.2" : "/bin/gateway", site)};
    for (size_t depth = 2 + number % 23; depth > 0; depth--) {
        const size_t caller = depth * (1 + number % 3) + number % 5;
        chain.push_back(world.frame("/bin/gateway", {place_of(caller)}));
    }
    chain.push_back(world.frame("/bin/gateway", {{"main", "src/main.c", 41}}));
    chain.push_back(world.frame("/lib/libc.so.6", {{"_start", "", 0}}));
    return world.chain(chain, number % 9 == 8 ? ChainEnd::cut : ChainEnd::whole);
}

void add_process(World &world, const std::vector<StackId> &stacks, size_t events)
{
    const size_t number = world.processes.size();
    Process &process = world.process(std::to_string(number));
    if (number == 0) {
        process.status = 0;
    } else if (number == 1) {
        process.facts.command = {hostile[0]};
        process.status = 137;
        process.facts.broken = "the disk was full after 812 events";
        process.facts.notes = {"the program's own vek_malloc passes the library by"};
    } else {
        process.facts = {};
        process.facts.foreign_lines = 12;
        process.facts.first_foreign = {{3, hostile[1]}, {17, hostile[2]}, {90, "\\xff\\xfe"}};
        process.facts.torn = "#4711 [0x8048";
        process.facts.missing_numbers = 2;
    }
    std::mt19937 random(static_cast<unsigned>(number));
    for (const StackId stack : stacks) { world.allocate(stack, 8 + random() % 4096); }
    std::vector<uint64_t> live;
    for (size_t i = 0; i < events; i++) {
        const StackId stack = stacks[random() % (1 + random() % stacks.size())];
        if (live.empty() || random() % 100 > i * 80 / events + 10) {
            live.push_back(world.allocate(stack, 8 + random() % 4096));
        } else {
            std::swap(live[random() % live.size()], live.back());
            world.release(stack, live.back());
            live.pop_back();
        }
    }
    world.add({Operation::malloc_if_possible, true, false, stacks[0], 0, 64, 0, 0});
    world.add({Operation::malloc_if_possible, false, false, stacks[0], 0, 64, 0, 0});
}

/** Faults of every kind: one of the first, two of the second, and so on. */
void add_faults(World &world)
{
    const StackId one = stack_of(world, 0);
    const StackId two = stack_of(world, 1);
    const StackId three = stack_of(world, 2);
    constexpr uint64_t unknown = 0x10;
    using enum Operation;
    for (int kind = 0; kind < 6; kind++) {
        for (int i = 0; i <= kind; i++) {
            const bool has_block = kind < 2 || kind == 4;
            const uint64_t block = has_block ? world.allocate(one, 48) : unknown;
            if (kind < 2) { world.release(two, block); }
            const uint64_t next = block + 0x80;
            world.add(kind == 5   ? Event{malloc, false, true, three, 0, 0UL - 24, 0, 0}
                      : kind == 4 ? Event{malloc, false, false, three, 0, 8, block, 0}
                      : kind % 2  ? Event{realloc, false, false, three, block, 8, next, 0}
                                  : Event{free, false, false, three, block, 0, 0, 0});
            if (kind % 2 && kind < 5) { world.release(two, next); }
        }
    }
}

Report make_sample(size_t sites, size_t events)
{
    World world;
    std::vector<StackId> stacks;
    for (size_t i = 0; i < sites; i++) { stacks.push_back(stack_of(world, i)); }
    for (int i = 0; i < 3; i++) { add_process(world, stacks, events); }
    add_faults(world);
    world.symbols.problems = {{world.stacks.module({"/lib/libx.so", "5f0c3a77"}), "no file"},
                              {world.stacks.module({hostile[0], ""}), "no file"}};
    ReportOptions options;
    options.suppressed = {"^hidden"};
    return world.report(options);
}

} // namespace

int main(int count, char **arguments)
{
    if (count != 4) { return 2; }
    const size_t sites = strtoul(arguments[2], nullptr, 10);
    const Report report = make_sample(sites, strtoul(arguments[3], nullptr, 10));
    const std::string_view format = arguments[1];
    const std::string text = format == "json"   ? format_json(report)
                             : format == "html" ? format_html(report)
                                                : format_json(compare(report, make_sample(9, 9)));
    return fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
}
