/* SPDX-License-Identifier: MIT */
/* Applies operations to one container of each kind and to plain models of them. Three bytes of the
 * input are an operation and its two arguments. One operation lets a later request for memory fail:
 * the containers must then be as their headers promise, and work again afterwards. */
#include <veklib/vekintdict.h>
#include <veklib/veknamedict.h>
#include <veklib/vekstack.h>
#include <veklib/vekstrdict.h>

#include "support.h"

#include <bitset>
#include <map>
#include <vector>

using namespace fuzz;

namespace {

/* ---- Elements ---- */

/** Texts of all lengths up to 31, each at two addresses; number 0 is null. */
char *text_of(unsigned number, unsigned copy = 0)
{
    static char texts[2][256][32];
    char *const text = texts[copy % 2][number];
    if (number > 1 && *text == 0) { memset(text, static_cast<int>(number), number % 31 + 1); }
    return number > 0 ? text : nullptr;
}

void *word(uintptr_t number) { return reinterpret_cast<void *>(number); }

unsigned number_of(const void *data)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(data));
}

using Elements = std::vector<void *>;
Elements seen; ///< what callbacks were called with

void note(void *element) { seen.push_back(element); }

void expect_seen(const Elements &expected) { require(std::exchange(seen, {}) == expected); }

/** What `make` makes: if memory is refused, nothing, and then something without refusals. */
template <typename Make>
auto made(Make make)
{
    const auto result = make();
    require((result == nullptr) == refused);
    if (!was_refused()) { return result; }
    refuse(0, false);
    return make();
}

/* ---- Hash tables ---- */

struct Mode {
    VekHashFunc hash_func;
    VekEqualFunc equal_func;
    unsigned step; ///< from one integer key to the next; 0: the keys are texts
    bool owns;     ///< keys and values
};

const Mode modes[] = {
    {vek_hash_int_hash_func, vek_hash_int_equal_func, 1, false},
    {vek_hash_int_hash_func, vek_hash_int_equal_func, 8, true},
    {vek_hash_pointer_hash_func, vek_hash_int_equal_func, 4096, true},
    {vek_hash_string_hash_func, vek_hash_string_equal_func, 0, true},
    {vek_hash_string_hash_func,
     [](const void *a, const void *b) { return vek_hash_string_equal_func(a, b); }, 0, false},
    {[](const void *) { return UINT32_MAX; }, vek_hash_int_equal_func, 1, true},
    {[](const void *key) { return vek_hash_int_hash_func(key) % 5 << 5; }, vek_hash_int_equal_func,
     1, false},
};

VekHash *hash;
Mode mode;
const void *replacement;             ///< what a key has while its old value is released
std::map<unsigned, Elements> hashed; ///< key and value by number, which is the value's last byte

void *key_of(unsigned number, unsigned copy = 0)
{
    return mode.step == 0 ? text_of(number, copy) : word((uintptr_t{number} - 100) * mode.step);
}

void release_key(void *key)
{
    note(key);
    require(vek_hash_lookup(hash, key) == replacement);
}

void expect_released(size_t entries)
{
    require(std::exchange(seen, {}).size() == (mode.owns ? 2 * entries : 0));
}

void hash_destroy()
{
    vek_hash_destroy(hash);
    expect_released(hashed.size());
    hashed.clear();
}

void hash_create(unsigned which, unsigned)
{
    hash_destroy();
    mode = modes[which % std::size(modes)];
    hash = made([] {
        return vek_hash_new_full(mode.hash_func, mode.equal_func, mode.owns ? release_key : nullptr,
                                 mode.owns ? note : nullptr);
    });
}

void hash_insert(unsigned number, unsigned bits)
{
    const Elements entry = {key_of(number, bits), word(number | bits << 8)};
    const auto found = hashed.find(number);
    const uint32_t size = hash->table_size;
    unsigned position = 0;
    const VekHashEntry *other = hash->table[hash->hash_func(entry[0]) % size];
    for (; other != nullptr; other = other->next) { ++position; }
    replacement = found != hashed.end() ? entry[1] : nullptr;
    const bool done = vek_hash_insert(hash, entry[0], entry[1]) == 1;
    replacement = nullptr;
    bool due = false;
    if (found != hashed.end()) {
        expect_seen(mode.owns ? found->second : Elements());
        found->second = entry;
        require(done);
    } else if (done) {
        hashed[number] = entry;
        due = hashed.size() > 8 * size || 3 * position >= size;
    }
    require(done ? due || !refused : refused);
    require(hash->table_size == (!was_refused() && due ? 2 * size : size));
}

void hash_remove(unsigned number, const void *key)
{
    const uint32_t size = hash->table_size;
    const auto found = hashed.find(number);
    require(vek_hash_remove(hash, key) == (found != hashed.end()));
    if (found == hashed.end()) { return; }
    expect_seen(mode.owns ? found->second : Elements());
    hashed.erase(found);
    const bool due = size > 8 && hashed.size() < size;
    require(due || !refused);
    require(hash->table_size == (due && !was_refused() ? size / 2 : size));
}

/** A walk must work whether a rehash reverses the chains or keeps their order. */
void reverse_chains()
{
    for (VekHashEntry **slot = hash->table; slot < hash->table + hash->table_size; ++slot) {
        for (VekHashEntry *rest = std::exchange(*slot, nullptr); rest != nullptr;) {
            VekHashEntry *const entry = std::exchange(rest, rest->next);
            entry->next = std::exchange(*slot, entry);
        }
    }
}

void hash_remove_in_walk(unsigned pattern, unsigned reversing)
{
    std::bitset<256> walked;
    const size_t before = hashed.size();
    VekHashEntry *entry;
    VEK_HASH_FOREACH(entry, hash) {
        const unsigned number = number_of(entry->value) & 255;
        const uint32_t size = hash->table_size;
        require(!walked[number]);
        walked.set(number);
        if ((pattern >> walked.count() % 8 & 1) != 0) { hash_remove(number, entry->key); }
        if (reversing % 2 != 0 && hash->table_size != size) { reverse_chains(); }
    }
    require(walked.count() == before);
}

void hash_remove_multiples(unsigned divisor, unsigned)
{
    const auto is_multiple = [](void *, void *value, void *by) -> int {
        return (number_of(value) & 255) % number_of(by) == 0;
    };
    if (divisor < 2) {
        vek_hash_clear(hash);
        expect_released(hashed.size());
        hashed.clear();
    } else {
        const auto count = std::erase_if(
            hashed, [divisor](const auto &entry) { return entry.first % divisor == 0; });
        require(vek_hash_foreach_remove(hash, is_multiple, word(divisor)) == count);
        expect_released(count);
    }
}

void hash_check()
{
    require(vek_hash_get_count(hash) == hashed.size());
    for (const auto &[number, expected] : hashed) {
        const VekHashEntry *const entry = vek_hash_find(hash, key_of(number, 1));
        require(entry != nullptr && Elements{entry->key, entry->value} == expected);
        require(vek_hash_lookup(hash, key_of(number)) == entry->value);
    }
    size_t count = 0;
    const auto add = [](void *, void *, void *to) { return ++*static_cast<size_t *>(to), 0; };
    vek_hash_foreach(hash, add, &count);
    require(count == hashed.size());
}

/* ---- Lists and stacks ---- */

VekStack stack;
VekSList *&list = stack.top;
Elements listed;

int by_tens(const void *a, const void *b)
{
    return static_cast<int>(number_of(a) / 10 - number_of(b) / 10);
}

void list_insert(unsigned how, unsigned number)
{
    const auto comes_before = [](void *a, void *b) { return by_tens(a, b) < 0; };
    void *const data = word(number);
    auto place = listed.begin() + how / 4 % static_cast<ptrdiff_t>(listed.size() + 1);
    VekSList *const node = vek_slist_nth(list, static_cast<unsigned>(place - listed.begin()));
    VekSList *result = list;
    if (how % 4 == 0) {
        result = vek_slist_insert_before(list, node, data);
    } else if (how % 4 == 1) {
        result = vek_slist_append(list, data);
        require(!refused || std::exchange(result, nullptr) == list);
        place = listed.end();
    } else if (how % 4 == 2 && node != nullptr) {
        require((vek_slist_insert_after(node, data) == nullptr) == refused);
        ++place;
        result = refused ? nullptr : list;
    } else {
        list = vek_slist_sort(list, by_tens);
        std::stable_sort(listed.begin(), listed.end(), comes_before);
        place = std::upper_bound(listed.begin(), listed.end(), data, comes_before);
        result = vek_slist_insert_sorted(list, data, by_tens);
    }
    require((result == nullptr) == refused);
    list = refused ? list : result;
    listed.insert(place, !refused, data);
}

void list_remove(unsigned pattern, unsigned number)
{
    const auto found = std::find(listed.begin(), listed.end(), word(number));
    list = vek_slist_remove(list, word(number));
    listed.erase(found, found + (found != listed.end()));
    unsigned i = 0;
    VekSList *node;
    VekSList *next;
    VEK_SLIST_FOREACH_SAFE(node, next, list) {
        if ((pattern >> i++ % 8 & 1) != 0) { list = vek_slist_delete_link(list, node); }
    }
    i = 0;
    std::erase_if(listed, [&](void *) { return (pattern >> i++ % 8 & 1) != 0; });
}

/** Replaces the list by a reversed copy, whose elements are others or the same. */
void list_copy(unsigned how, unsigned)
{
    const uintptr_t change = how % 2;
    const auto copy_data = [](void *data) { return note(data), word(number_of(data) ^ 1); };
    VekSList *const copy = vek_slist_dup(list, change != 0 ? +copy_data : nullptr);
    require((copy == nullptr) == (refused || listed.empty()));
    expect_seen(refused || change == 0 ? Elements() : listed);
    if (refused) { return; }
    require(vek_slist_equal(list, copy, nullptr) == (change == 0 || listed.empty()));
    vek_slist_free(list, note);
    expect_seen(listed);
    list = vek_slist_reverse(copy);
    std::reverse(listed.begin(), listed.end());
    for (void *&data : listed) { data = word(number_of(data) ^ change); }
}

void stack_change(unsigned how, unsigned number)
{
    if (how == 0) {
        vek_stack_free(&stack, note);
        expect_seen(std::exchange(listed, {}));
    } else if (how % 3 != 0) {
        vek_stack_push(&stack, word(number));
        listed.insert(listed.begin(), !refused, word(number));
    } else if (!listed.empty()) {
        require(vek_stack_peek(&stack) == listed.front());
        require(vek_stack_pop(&stack) == listed.front());
        listed.erase(listed.begin());
    }
}

void list_check()
{
    require(vek_stack_get_depth(&stack) == listed.size());
    require(vek_stack_is_empty(&stack) == listed.empty());
    const auto note_data = [](void *data, void *) { return note(data), 0; };
    vek_stack_foreach(&stack, note_data, nullptr);
    expect_seen(listed);
}

/* ---- Names and dictionaries ---- */

VekNameTable *names;
std::map<unsigned, VekName *> named;

/** Interns a text, or only finds it. */
void intern(unsigned number, unsigned how)
{
    const char *const text = text_of(number | 1, how);
    const auto id = static_cast<int32_t>(how);
    const bool creates = how % 4 != 0;
    VekName *const name =
        creates ? vek_name_from_string(names, text, id) : vek_name_try_string(names, text);
    if (named.contains(number | 1)) {
        require(name == named[number | 1] && !refused);
    } else if (name != nullptr) { // a table that cannot grow has been refused memory, too
        require(creates && vek_name_get_id(name) == id && strcmp(name->string, text) == 0);
        named[number | 1] = name;
    } else {
        require(!creates || refused);
    }
    require(vek_hash_get_count(names->hash) == named.size());
}

VekValue data[256]; ///< in turn integers, doubles, VekStrs, and lists of values with a list in them

void make_data()
{
    for (unsigned i = 0; i < 256; i += 4) {
        vek_value_set_int(&data[i], static_cast<int32_t>(i));
        vek_value_set_double(&data[i + 1], i + 0.5);
        vek_value_take_vekstr(&data[i + 2], vek_str_create(text_of(i + 2)));
        VekSList *const end = i != 0 ? vek_slist_prepend(nullptr, &data[3]) : nullptr;
        vek_value_take_slist_of_value(&data[i + 3], vek_slist_prepend(end, &data[i + 2]));
    }
}

/** The functions of a typed dictionary. */
struct Typed {
    VekDict *(*create)(int slots);
    int (*put)(VekDict *dict, unsigned number, unsigned datum);
    VekValue *(*find)(const VekDict *dict, unsigned number);
};

template <auto put_int, auto put_double, auto put_string, auto put_value>
int put(VekDict *to, auto key, unsigned datum)
{
    switch (datum % 4) {
    case 0: return put_int(to, key, data[datum].payload.integer);
    case 1: return put_double(to, key, data[datum].payload.real);
    case 2: return put_string(to, key, text_of(datum));
    default:
        VekValue copy;
        const bool done = vek_value_copy(&copy, &data[datum]) == 1 && put_value(to, key, &copy);
        require(done == (copy.vt == nullptr));
        vek_value_release(&copy);
        return done;
    }
}

#define TYPED(type, key)                                                                           \
    {                                                                                              \
        type##_create,                                                                             \
            [](VekDict *to, unsigned number, unsigned datum) {                                     \
                return put<type##_put_int, type##_put_double, type##_dup_and_put_string,           \
                           type##_put_value>(to, key, datum);                                      \
            },                                                                                     \
            [](const VekDict *of, unsigned number) { return type##_get_value(of, key); }           \
    }
VekName keys[256];
const Typed typed[] = {TYPED(vek_int_dict, static_cast<int32_t>(number) - 100),
                       TYPED(vek_str_dict, text_of(number)), TYPED(vek_name_dict, &keys[number])};

const Typed *functions;
VekDict *dict;
std::vector<std::pair<unsigned, unsigned>> items; ///< numbers of the key and of the datum

void dict_create(unsigned which, unsigned slots)
{
    vek_dict_destroy(dict);
    items.clear();
    functions = &typed[which % std::size(typed)];
    dict = made([slots] { return functions->create(static_cast<int>(slots % 16) + 1); });
}

void dict_put(unsigned number, unsigned datum)
{
    require(functions->put(dict, number, datum) == !refused);
    if (refused) { return; }
    const auto has_number = [number](const auto &item) { return item.first == number; };
    const auto found = std::find_if(items.begin(), items.end(), has_number);
    if (found != items.end()) {
        items.erase(items.insert(found, {number, datum}) + 1);
    } else {
        items.emplace_back(number, datum);
    }
}

/** Empties the dictionary, copies it, or moves its items to another one. */
void dict_replace(unsigned how, unsigned slots)
{
    const auto len = static_cast<int>(items.size());
    const int room = static_cast<int>(slots) + 1;
    const bool moves = how % 2 != 0;
    if (how % 8 == 0) {
        require(vek_dict_clear(dict) == dict);
        items.clear();
        return;
    }
    VekDict *const other = moves ? vek_dict_dup_and_clear(dict) : vek_dict_copy(dict, room);
    require((other == nullptr) == (refused || (moves && len == 0)));
    if (other != nullptr) {
        require(other->first_seg.count == (moves ? len : std::max(len, room)));
        require(vek_dict_get_key_type(other) == vek_dict_get_key_type(dict));
        require(vek_dict_get_len(dict) == (moves ? 0 : len));
        vek_dict_destroy(std::exchange(dict, other));
    }
}

void dict_check()
{
    require(vek_dict_get_len(dict) == static_cast<int>(items.size()));
    const auto note_datum = [](VekValue *, VekValue *datum, void *) { return note(datum), 0; };
    vek_dict_foreach(dict, note_datum, nullptr);
    Elements found;
    for (const auto &[number, datum] : items) { // the walk follows the order of insertion
        found.push_back(functions->find(dict, number));
        require(vek_value_equal(static_cast<VekValue *>(found.back()), &data[datum]));
    }
    expect_seen(found);
}

/* ---- Operations ---- */

void check_all(unsigned, unsigned)
{
    hash_check();
    list_check();
    dict_check();
}

void (*const operations[])(unsigned, unsigned) = {
    [](unsigned request, unsigned onward) { refuse(request % 32, onward % 2 != 0); },
    check_all,
    hash_create,
    hash_insert,
    [](unsigned number, unsigned count) {
        for (count %= 64; count > 0; --count) { hash_insert(number++ % 256, count); }
    },
    [](unsigned number, unsigned copy) { hash_remove(number, key_of(number, copy)); },
    hash_remove_in_walk,
    hash_remove_multiples,
    list_insert,
    list_remove,
    list_copy,
    stack_change,
    intern,
    dict_create,
    dict_put,
    dict_replace,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size)
{
    if (data[0].vt == nullptr) { make_data(); }
    use_memory();
    hash = vek_hash_new();
    mode = modes[0];
    dict_create(0, 0);
    vek_name_table_create(&names);
    for (Input input = {bytes, size}; input.left > 2; refused = false) {
        const auto operation = operations[input.byte() % std::size(operations)];
        const unsigned first = input.byte();
        operation(first, input.byte());
    }
    check_all(0, 0);

    refuse(0, false);
    hash_destroy();
    stack_change(0, 0);
    vek_dict_destroy(std::exchange(dict, nullptr));
    vek_name_table_destroy(&names);
    require(live == 0);
    named.clear();
    return 0;
}
