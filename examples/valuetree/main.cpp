// SPDX-License-Identifier: MIT
// valuetree: settings as a tree of values and dictionaries, which C++ code builds, copies, changes,
// prints and releases. To use the C interface comfortably, it needs only the smart pointer below.
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <utility>

#include <veklib/vekdict.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstrdict.h>

namespace {

// Each of these pointers holds one reference.
struct Release {
    void operator()(VekDict *dict) const { vek_dict_destroy(dict); }
};
using Dict = std::unique_ptr<VekDict, Release>;

// A program whose settings are missing must not run.
[[noreturn]] void give_up()
{
    std::fputs("valuetree: out of memory\n", stderr);
    std::exit(EXIT_FAILURE);
}

void require(bool done)
{
    if (!done) {
        give_up();
    }
}

Dict new_dict(int expected)
{
    Dict dict(vek_str_dict_create(expected));
    require(dict != nullptr);
    return dict;
}

// Hands a subtree over to its parent.
void put(const Dict &parent, const char *key, Dict child)
{
    require(vek_str_dict_put_dict(parent.get(), key, child.release()) != 0);
}

void put(const Dict &parent, const char *key, std::initializer_list<int> numbers)
{
    VekSList *list = nullptr;
    for (const int number : numbers) {
        VekSList *const longer = vek_slist_append(list, VEK_INT_TO_POINTER(number));
        require(longer != nullptr);
        list = longer;
    }
    require(vek_str_dict_put_slist(parent.get(), key, VEK_VALUE_SLIST_OF_INT, list) != 0);
}

Dict build()
{
    Dict network = new_dict(4);
    require(vek_str_dict_dup_and_put_string(network.get(), "host", "gateway.example") != 0);
    require(vek_str_dict_put_double(network.get(), "timeout", 2.5) != 0);
    put(network, "ports", {80, 443, 8080});

    Dict logging = new_dict(2);
    require(vek_str_dict_put_int(logging.get(), "level", 3) != 0);

    Dict settings = new_dict(4);
    require(vek_str_dict_dup_and_put_string(settings.get(), "name", "gateway") != 0);
    put(settings, "network", std::move(network));
    put(settings, "logging", std::move(logging));
    return settings;
}

// vek_dict_copy() shares nested dictionaries; this copies them too.
Dict deep_copy(const VekDict *dict)
{
    Dict copy(vek_dict_copy(dict, 1));
    require(copy != nullptr);
    vek_dict_foreach(
        copy.get(),
        [](VekValue *, VekValue *data, void *) {
            if (vek_value_get_type(data) == VEK_VALUE_DICT) {
                Dict nested = deep_copy(vek_value_get_dict(data));
                vek_value_release(data);
                vek_value_take_dict(data, nested.release());
            }
            return 0;
        },
        nullptr);
    return copy;
}

void print(const VekDict *dict, int depth);

void print(const VekValue *value, int depth)
{
    if (vek_value_get_type(value) == VEK_VALUE_DICT) {
        std::printf("\n");
        print(vek_value_get_dict(value), depth + 1);
        return;
    }
    if (vek_value_get_type(value) == VEK_VALUE_SLIST_OF_INT) {
        const char *separator = " ";
        for (const VekSList *node = vek_value_get_slist(value); node; node = node->next) {
            std::printf("%s%d", separator, VEK_POINTER_TO_INT(node->data));
            separator = ", ";
        }
        std::printf("\n");
        return;
    }
    char *const text = vek_value_get_as_string(value);
    std::printf(" %s\n", text != nullptr ? text : "?");
    vek_free(text);
}

void print(const VekDict *dict, int depth)
{
    // A walk hands out records that may be changed, so it takes a dictionary that is not const.
    vek_dict_foreach(
        const_cast<VekDict *>(dict),
        [](VekValue *key, VekValue *data, void *depth_of_items) {
            const int indent = *static_cast<int *>(depth_of_items);
            std::printf("%*s%s:", 2 * indent, "", vek_value_get_string(key));
            print(data, indent);
            return 0;
        },
        &depth);
}

} // namespace

int main()
{
    const Dict settings = build();
    const Dict copy = deep_copy(settings.get());
    VekDict *const network = vek_str_dict_get_dict(copy.get(), "network");
    require(vek_str_dict_dup_and_put_string(network, "host", "backup.example") != 0);
    require(vek_str_dict_put_int(network, "timeout", 10) != 0);

    std::printf("settings\n");
    print(settings.get(), 1);
    std::printf("changed copy\n");
    print(copy.get(), 1);
    return EXIT_SUCCESS;
}
