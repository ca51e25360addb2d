// The pattern of the library's objects: a public record whose first member `priv` points to a
// private record that begins with `ObjectCommon`; one object of each kind at a time, guarded by a
// bit of one process-wide word.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "base/diag.h"

namespace marl {

struct ObjectCommon {
    int32_t refcount;
    int32_t id;
    int32_t fd;
};

// How much of an object an operation needs.
enum class Need { Object, Private, Descriptor };

namespace detail {
int check_object(bool given, const ObjectCommon* common, const char* operation, Need need);
}

// Opens every operation: 0 when `thiz` has what is needed. Otherwise a line with the operation's name on
// standard error and -1 (no object), -2 (no private record) or -3 (no descriptor).
template <typename Object>
int check_object(const Object* thiz, const char* operation, Need need) {
    const bool given = thiz != nullptr;
    return detail::check_object(given, given ? static_cast<const ObjectCommon*>(thiz->priv) : nullptr,
                                operation, need);
}

// A public record with a private one behind it, closed and with one reference; its operations are
// the caller's to fill in. Null without memory, after a line on standard error with the name of
// the record's type.
template <typename Object, typename Record>
Object* allocate_object(const char* type) {
    auto* object = static_cast<Object*>(malloc(sizeof(Object)));
    auto* record = object != nullptr ? static_cast<Record*>(malloc(sizeof(Record))) : nullptr;
    if (record == nullptr) {
        diag::err("malloc(sizeof(%s))", object == nullptr ? type : "priv_module");
        free(object);
        return nullptr;
    }
    record->common = {.refcount = 1, .id = 0, .fd = -1};
    object->priv = record;
    return object;
}

template <typename Object>
void free_object(Object* object) {
    free(object->priv);
    free(object);
}

// `refcount` up by one: 0, or -1 for a record whose count is negative.
int add_reference(ObjectCommon& common);

// `refcount` down by one: true when that was the last reference. A count below 1 is left alone.
bool drop_reference(ObjectCommon& common);

inline constexpr uint32_t kGpioObject = 0x20;
inline constexpr uint32_t kRawFlashObject = 0x80;

bool object_exists(uint32_t kind);
void mark_object(uint32_t kind, bool exists);

}  // namespace marl
