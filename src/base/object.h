// The pattern of the library's objects: a public record whose first member `priv` points to a
// private record that begins with `ObjectCommon`; one object of each kind at a time.
//
// Holders of an object keep their pointers after its last release, and call it through the entries of the
// public record. So that record stays, without a private one, for the life of the process, and the next
// object of the kind moves in: who comes late finds an object without private record, and memory that is
// freed is never looked at.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace marl {

struct ObjectCommon {
    int32_t refcount;
    int32_t id;
    int32_t fd;
};

// Written by the create and release operations of a kind; no lock, as the objects have none.
struct ObjectKind {
    void* object = nullptr;    // the public record, of this object or the last one
    void* record = nullptr;    // the private record of the object that lives, or is being made
    bool has_holders = false;  // somebody was given the public record at some time, and may still call it
};

// How much of an object an operation needs.
enum class Need { Object, Private, Descriptor };

namespace detail {
bool check_object(bool given, const ObjectCommon* common, const char* operation, Need need);
}

// Opens every operation: whether `thiz` has what is needed. Otherwise a line on standard error names the
// operation and what is missing; the private record is, too, where the object is gone.
template <typename Object>
bool check_object(const ObjectKind& kind, const Object* thiz, const char* operation, Need need) {
    const bool given = thiz != nullptr;
    const bool lives = given && thiz->priv == kind.record;
    return detail::check_object(given, lives ? static_cast<const ObjectCommon*>(thiz->priv) : nullptr,
                                operation, need);
}

inline bool object_exists(const ObjectKind& kind) { return kind.record != nullptr; }

// Ends an object that nobody was given.
void free_object(ObjectKind& kind);

// Ends an object after its last release.
void retire_object(ObjectKind& kind);

// The one object of its kind, closed and with one reference; its operations are the caller's to fill in. Null
// without memory, after `report` was given the name of the record's type.
template <typename Object, typename Record>
Object* allocate_object(ObjectKind& kind, const char* type, void (*report)(const char* type)) {
    if (kind.object == nullptr) kind.object = malloc(sizeof(Object));
    auto* object = static_cast<Object*>(kind.object);
    auto* record = object != nullptr ? static_cast<Record*>(malloc(sizeof(Record))) : nullptr;
    if (record == nullptr) {
        report(object == nullptr ? type : "priv_module");
        free_object(kind);
        return nullptr;
    }
    record->common = {.refcount = 1, .id = 0, .fd = -1};
    object->priv = record;
    kind.record = record;
    return object;
}

// `refcount` up by one: 0, or -1 for a record whose count is negative.
int add_reference(ObjectCommon& common);

// `refcount` down by one: true when that was the last reference. A count below 1 is left alone.
bool drop_reference(ObjectCommon& common);

}  // namespace marl
