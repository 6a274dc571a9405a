/* SPDX-License-Identifier: MIT */
/* Applies operations to one container of each kind and to plain models of them. Three bytes of the
 * input are an operation and its two arguments. One operation lets a later request for memory fail:
 * the containers must then be as their headers promise, and work again afterwards. */
#include <veklib/vekintdict.h>
#include <veklib/vekmemory.h>
#include <veklib/veknamedict.h>
#include <veklib/vekstack.h>
#include <veklib/vekstrdict.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include <malloc.h>

namespace {

void require(bool condition)
{
    if (!condition) { abort(); }
}

/* ---- Memory ---- */

size_t live;            ///< blocks that are not released
unsigned until_refusal; ///< which request from now on is refused; 0: none
bool refuses_onward;    ///< then all later ones, too
bool refused;           ///< a request was refused

bool was_refused() { return std::exchange(refused, false); }

void *allocate(size_t size, void *)
{
    if (until_refusal > 0 && --until_refusal == 0) {
        until_refusal = refuses_onward;
        refused = true;
        return nullptr;
    }
    ++live;
    return memset(malloc(size), 0xA5, size);
}

void *allocate_zeros(size_t count, size_t size, void *caller)
{
    void *const block = allocate(count * size, caller);
    return block != nullptr ? memset(block, 0, count * size) : nullptr;
}

void release(void *block, void *)
{
    --live;
    free(memset(block, 0xDD, malloc_usable_size(block)));
}

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

using Entry = std::array<void *, 2>; ///< key and value

VekHash *hash;
Mode mode;
const void *replacement;          ///< the value that a key has while its old one is released
std::map<unsigned, Entry> hashed; ///< key and value by number, which is the value's last byte

void *key_of(unsigned number, unsigned copy = 0)
{
    return mode.step == 0 ? text_of(number, copy) : word((uintptr_t{number} - 100) * mode.step);
}

void expect_entry_seen(const Entry &entry)
{
    require(seen.size() == (mode.owns ? 2 : 0) &&
            std::equal(seen.begin(), seen.end(), entry.begin()));
    seen.clear();
}

void release_key(void *key)
{
    note(key);
    require(vek_hash_lookup(hash, key) == replacement);
}

void hash_destroy()
{
    vek_hash_destroy(hash);
    require(std::exchange(seen, {}).size() == (mode.owns ? 2 * hashed.size() : 0));
    hashed.clear();
    hash = nullptr;
}

/** Makes a table; if memory is refused, another one without refusals. */
void hash_create(unsigned which, unsigned)
{
    if (hash != nullptr) { hash_destroy(); }
    mode = modes[which % std::size(modes)];
    hash = which == 0
               ? vek_hash_new()
               : vek_hash_new_full(mode.hash_func, mode.equal_func,
                                   mode.owns ? release_key : nullptr, mode.owns ? note : nullptr);
    require((hash == nullptr) == refused);
    if (was_refused()) {
        until_refusal = 0;
        hash_create(which, 0);
    }
}

void hash_insert(unsigned number, unsigned bits)
{
    const Entry entry = {key_of(number, bits), word(number | bits << 8)};
    const uint32_t size = hash->table_size;
    if (const auto found = hashed.find(number); found != hashed.end()) {
        replacement = entry[1];
        require(vek_hash_insert(hash, entry[0], entry[1]) == 1);
        replacement = nullptr;
        const Entry old = std::exchange(found->second, entry);
        expect_entry_seen(old);
        require(!refused && hash->table_size == size);
        return;
    }
    unsigned position = 0;
    const VekHashEntry *other = hash->table[hash->hash_func(entry[0]) % size];
    for (; other != nullptr; other = other->next) { ++position; }
    const bool done = vek_hash_insert(hash, entry[0], entry[1]) == 1;
    if (done) { hashed[number] = entry; }
    const bool due = done && (hashed.size() > 8 * size || 3 * position >= size);
    require(done ? due || !refused : refused);
    require(hash->table_size == (!was_refused() && due ? 2 * size : size));
}

void hash_remove(unsigned number, const void *key)
{
    const uint32_t size = hash->table_size;
    const auto found = hashed.find(number);
    require(vek_hash_remove(hash, key) == (found != hashed.end()));
    if (found != hashed.end()) {
        expect_entry_seen(found->second);
        hashed.erase(found);
        const bool due = size > 8 && hashed.size() < size;
        require(due || !refused);
        require(hash->table_size == (due && !was_refused() ? size / 2 : size));
    }
}

/** A walk must work whether a rehash reverses the chains or keeps their order. */
void reverse_chains()
{
    for (uint32_t i = 0; i < hash->table_size; ++i) {
        VekHashEntry *reversed = nullptr;
        while (VekHashEntry *const entry = hash->table[i]) {
            hash->table[i] = std::exchange(entry->next, reversed);
            reversed = entry;
        }
        hash->table[i] = reversed;
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
    const size_t before = hashed.size();
    if (divisor < 2) {
        vek_hash_clear(hash);
        hashed.clear();
    } else {
        std::erase_if(hashed, [&](const auto &entry) { return entry.first % divisor == 0; });
        require(vek_hash_foreach_remove(hash, is_multiple, word(divisor)) ==
                before - hashed.size());
    }
    require(std::exchange(seen, {}).size() == (mode.owns ? 2 * (before - hashed.size()) : 0));
}

void hash_check()
{
    require(vek_hash_get_count(hash) == hashed.size());
    for (const auto &[number, expected] : hashed) {
        const VekHashEntry *const entry = vek_hash_find(hash, key_of(number, 1));
        require(entry != nullptr && Entry{entry->key, entry->value} == expected);
        require(vek_hash_lookup(hash, key_of(number)) == entry->value);
    }
    vek_hash_foreach(
        hash, [](void *, void *value, void *) { return note(value), 0; }, nullptr);
    require(std::exchange(seen, {}).size() == hashed.size());
}

/* ---- Lists and stacks ---- */

VekSList *list;
Elements listed;
VekStack stack;
Elements stacked; ///< top first

const auto by_tens = [](const void *a, const void *b) -> int {
    return static_cast<int>(number_of(a) / 10 - number_of(b) / 10);
};

void list_insert(unsigned how, unsigned number)
{
    const auto comes_before = [](void *a, void *b) { return by_tens(a, b) < 0; };
    void *const data = word(number);
    auto place = listed.begin() + how / 4 % static_cast<ptrdiff_t>(listed.size() + 1);
    VekSList *const node = vek_slist_nth(list, static_cast<unsigned>(place - listed.begin()));
    VekSList *result = nullptr;
    if (how % 4 == 0) {
        result = vek_slist_insert_before(list, node, data);
    } else if (how % 4 == 1) {
        result = vek_slist_append(list, data);
        require(!refused || result == list);
        result = refused ? nullptr : result;
        place = listed.end();
    } else if (how % 4 == 2 && node != nullptr) {
        result = vek_slist_insert_after(node, data) != nullptr ? list : nullptr;
        ++place;
    } else {
        list = vek_slist_sort(list, by_tens);
        std::stable_sort(listed.begin(), listed.end(), comes_before);
        place = std::upper_bound(listed.begin(), listed.end(), data, comes_before);
        result = vek_slist_insert_sorted(list, data, by_tens);
    }
    require((result == nullptr) == refused);
    if (!was_refused()) {
        list = result;
        listed.insert(place, data);
    }
}

void list_remove(unsigned pattern, unsigned number)
{
    const auto found = std::find(listed.begin(), listed.end(), word(number));
    list = vek_slist_remove(list, word(number));
    listed.erase(found, found + (found != listed.end()));
    VekSList *node;
    VekSList *next;
    unsigned i = 0;
    VEK_SLIST_FOREACH_SAFE(node, next, list) {
        if ((pattern >> i++ % 8 & 1) != 0) {
            list = vek_slist_remove_link(list, node);
            vek_slist_free(node, note);
        }
    }
    i = 0;
    Elements removed;
    std::erase_if(listed, [&](void *data) {
        return (pattern >> i++ % 8 & 1) != 0 && (removed.push_back(data), true);
    });
    expect_seen(removed);
}

/** Replaces the list by a reversed copy, whose elements are others or the same. */
void list_copy(unsigned how, unsigned)
{
    const uintptr_t change = how % 2;
    const auto copy_data = [](void *data) { return note(data), word(number_of(data) ^ 1); };
    VekSList *const copy = vek_slist_dup(list, change != 0 ? +copy_data : nullptr);
    require((copy == nullptr) == (refused || listed.empty()));
    expect_seen(refused || change == 0 ? Elements() : listed);
    if (!was_refused()) {
        require(vek_slist_equal(list, copy, nullptr) == (change == 0 || listed.empty()));
        vek_slist_free(list, note);
        expect_seen(listed);
        list = vek_slist_reverse(copy);
        std::reverse(listed.begin(), listed.end());
        for (void *&data : listed) { data = word(number_of(data) ^ change); }
    }
}

void stack_change(unsigned how, unsigned number)
{
    if (how == 0) {
        vek_stack_free(&stack, note);
        expect_seen(std::exchange(stacked, {}));
    } else if (how % 3 != 0) {
        vek_stack_push(&stack, word(number));
        stacked.insert(stacked.begin(), !was_refused(), word(number));
    } else if (!stacked.empty()) {
        require(vek_stack_peek(&stack) == stacked.front());
        require(vek_stack_pop(&stack) == stacked.front());
        stacked.erase(stacked.begin());
    }
}

void lists_check()
{
    const VekSList *node;
    VEK_SLIST_FOREACH(node, list) { note(node->data); }
    expect_seen(listed);
    require(vek_slist_get_length(list) == listed.size());
    require(vek_stack_get_depth(&stack) == stacked.size());
    require(vek_stack_is_empty(&stack) == stacked.empty());
    vek_stack_foreach(
        &stack, [](void *data, void *) { return note(data), 0; }, nullptr);
    expect_seen(stacked);
}

/* ---- Names and dictionaries ---- */

VekNameTable *names;
std::map<unsigned, VekName *> named;

/** Interns a text, or only finds it. */
void intern(unsigned number, unsigned how)
{
    const char *const text = text_of(number | 1, how);
    const auto found = named.find(number | 1);
    VekName *const name = how % 4 == 0
                              ? vek_name_try_string(names, text)
                              : vek_name_from_string(names, text, static_cast<int32_t>(how));
    if (found != named.end()) {
        require(name == found->second && !refused);
    } else if (how % 4 == 0) {
        require(name == nullptr);
    } else if (name != nullptr) {
        named[number | 1] = name;
        require(vek_name_get_id(name) == static_cast<int32_t>(how));
        require(strcmp(vek_name_to_string(name), text) == 0);
    }
    require(name != nullptr || how % 4 == 0 || refused);
    require(vek_hash_get_count(names->hash) == named.size());
}

/** A datum by its number: an integer, a double, a VekStr, or a list of values with a list in it.
 *  Nothing in it is on the heap. */
struct Datum {
    explicit Datum(unsigned number)
    {
        vek_value_set_int(&leaf, static_cast<int32_t>(number));
        vek_value_take_slist_of_value(&inner, &second);
        if (number % 4 == 0) {
            vek_value_set_int(&value, static_cast<int32_t>(number));
        } else if (number % 4 == 1) {
            vek_value_set_double(&value, number + 0.5);
        } else if (number % 4 == 2) {
            strcpy(text.text, text_of(number));
            vek_value_take_vekstr(&value, reinterpret_cast<VekStr *>(&text));
        } else {
            vek_value_take_slist_of_value(&value, &first);
        }
    }
    struct {
        uint32_t count;
        char text[32];
    } text = {1, ""}; ///< laid out as a VekStr
    VekValue leaf;
    VekValue inner;
    VekSList second = {&leaf, nullptr};
    VekSList first = {&inner, &second};
    VekValue value;
};

/** The functions of a typed dictionary. */
struct Typed {
    VekDict *(*create)(int slots);
    int (*put)(VekDict *dict, unsigned number, unsigned datum);
    VekValue *(*find)(const VekDict *dict, unsigned number);
};
template <auto put_int, auto put_double, auto put_string, auto put_value>
int put_datum(VekDict *dict, auto key, unsigned number)
{
    const Datum datum(number);
    switch (number % 4) {
    case 0: return put_int(dict, key, static_cast<int32_t>(number));
    case 1: return put_double(dict, key, number + 0.5);
    case 2: return put_string(dict, key, text_of(number));
    default:
        VekValue copy;
        const bool copied = vek_value_copy(&copy, &datum.value) == 1;
        require(copied == !refused);
        const bool done = copied && put_value(dict, key, &copy) == 1;
        require(done == (copy.vt == nullptr));
        vek_value_release(&copy);
        return done;
    }
}
#define TYPED(prefix, key)                                                                         \
    {                                                                                              \
        prefix##_create,                                                                           \
            [](VekDict *of, unsigned number, unsigned datum) {                                     \
                return put_datum<prefix##_put_int, prefix##_put_double,                            \
                                 prefix##_dup_and_put_string, prefix##_put_value>(of, key, datum); \
            },                                                                                     \
            [](const VekDict *of, unsigned number) { return prefix##_get_value(of, key); }         \
    }
VekName keys[256];
const Typed typed[] = {TYPED(vek_int_dict, static_cast<int32_t>(number) - 100),
                       TYPED(vek_str_dict, text_of(number)), TYPED(vek_name_dict, &keys[number])};

const Typed *functions = typed;
VekDict *dict;
std::vector<std::pair<unsigned, unsigned>> items; ///< numbers of the key and of the datum

void dict_create(unsigned which, unsigned slots)
{
    vek_dict_destroy(dict);
    items.clear();
    functions = &typed[which % std::size(typed)];
    dict = functions->create(static_cast<int>(slots % 16) + 1);
    require((dict == nullptr) == refused);
    if (was_refused()) {
        until_refusal = 0;
        dict_create(which, slots);
    }
}

void dict_put(unsigned number, unsigned datum)
{
    const int done = functions->put(dict, number, datum);
    require(done == !was_refused());
    if (done) {
        const auto found = std::find_if(items.begin(), items.end(),
                                        [&](const auto &item) { return item.first == number; });
        if (found != items.end()) {
            found->second = datum;
        } else {
            items.emplace_back(number, datum);
        }
    }
}

/** Empties the dictionary, copies it, or moves its items to another one. */
void dict_replace(unsigned how, unsigned slots)
{
    if (how % 8 == 0) {
        require(vek_dict_clear(dict) == dict);
        items.clear();
        return;
    }
    const bool moves = how % 2 != 0;
    VekDict *const other =
        moves ? vek_dict_dup_and_clear(dict) : vek_dict_copy(dict, static_cast<int>(slots) + 1);
    require((other == nullptr) == (was_refused() || (moves && items.empty())));
    if (other != nullptr) {
        const auto len = static_cast<int>(items.size());
        require(other->first_seg.count ==
                (moves ? len : std::max(len, static_cast<int>(slots) + 1)));
        require(vek_dict_get_key_type(other) == vek_dict_get_key_type(dict));
        require(vek_dict_get_len(dict) == (moves ? 0 : len));
        vek_dict_destroy(std::exchange(dict, other));
    }
}

void dict_check()
{
    require(vek_dict_get_len(dict) == static_cast<int>(items.size()));
    vek_dict_foreach(
        dict, [](VekValue *, VekValue *datum, void *) { return note(datum), 0; }, nullptr);
    require(seen.size() == items.size());
    for (size_t i = 0; i < items.size(); ++i) { // the walk follows the order of insertion
        require(functions->find(dict, items[i].first) == seen[i]);
        const Datum datum(items[i].second);
        require(vek_value_equal(static_cast<VekValue *>(seen[i]), &datum.value));
    }
    seen.clear();
}

/* ---- Operations ---- */

void check_all()
{
    hash_check();
    lists_check();
    dict_check();
}

void (*const operations[])(unsigned, unsigned) = {
    [](unsigned request, unsigned onward) {
        until_refusal = request % 32;
        refuses_onward = onward % 2 != 0;
    },
    [](unsigned, unsigned) { check_all(); },
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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    VekMemoryVtable table = {};
    table.malloc = allocate;
    table.calloc = allocate_zeros;
    table.free = release;
    vek_set_memory_vtable(&table);
    until_refusal = 0;
    hash_create(0, 0);
    dict_create(0, 0);
    vek_name_table_create(&names);
    for (size_t i = 0; i + 2 < size; i += 3) {
        operations[data[i] % std::size(operations)](data[i + 1], data[i + 2]);
        refused = false;
    }
    check_all();

    hash_destroy();
    vek_slist_free(list, nullptr);
    vek_stack_free(&stack, nullptr);
    vek_dict_destroy(dict);
    vek_name_table_destroy(&names);
    require(live == 0);
    list = nullptr;
    dict = nullptr;
    listed.clear();
    stacked.clear();
    named.clear();
    items.clear();
    return 0;
}
