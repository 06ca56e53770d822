// Class ids of detected and tracked objects, the one place that says which number is which class:
// 1 is a person, 2 and 4 are vehicles (4 the second vehicle kind), 3 is another object, and 0 a
// class the daemon has no id for. The network's class lists map to ids by list index, the
// event's class codes are the ids less one, and the tools, scenes and ground-truth files spell
// the classes "person", "vehicle", "other" and "vehicle2". The 32-bit class masks of the
// settings admit class id n with bit n.
//
// Header only (the daemon, the host simulation and the tools share it). Constants and pure
// functions: any thread may use them.
#ifndef MIRVANE_COMMON_OBJECT_CLASS_H
#define MIRVANE_COMMON_OBJECT_CLASS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace mirvane {
namespace dva {

constexpr int32_t kClassNone = 0;  // a class list beyond the table below
constexpr int32_t kClassPerson = 1;
constexpr int32_t kClassVehicle = 2;
constexpr int32_t kClassOther = 3;
constexpr int32_t kClassVehicle2 = 4;  // the second vehicle kind

// Class id of each of the network's class lists, by list index.
constexpr int32_t kClassIds[] = {kClassPerson, kClassVehicle, kClassOther, kClassVehicle2};
constexpr size_t kClassIdCount = sizeof(kClassIds) / sizeof(kClassIds[0]);

// The class id of class list list_index; kClassNone beyond the table.
constexpr int32_t ClassIdOfList(size_t list_index) {
  return list_index < kClassIdCount ? kClassIds[list_index] : kClassNone;
}

// Whether class_id is one of kClassIds.
constexpr bool IsKnownClass(int32_t class_id) {
  return class_id >= kClassPerson && class_id <= kClassVehicle2;
}

// The index of a known class id in kClassIds; also the event's class code of that id.
constexpr size_t ClassIndex(int32_t class_id) {
  return static_cast<size_t>(class_id - kClassPerson);
}

// The class id of an event class code (any code; unknown ones give ids beyond the table).
constexpr int32_t ClassIdOfCode(uint8_t class_code) {
  return kClassPerson + static_cast<int32_t>(class_code);
}

constexpr uint32_t ClassBit(int32_t class_id) {
  return 1u << class_id;
}
constexpr uint32_t kPeopleClassMask = ClassBit(kClassPerson);
constexpr uint32_t kVehicleClassMask = ClassBit(kClassVehicle) | ClassBit(kClassVehicle2);

// Whether bit class_id of mask is set; negative class ids and ids of 32 or more never pass.
constexpr bool ClassInMask(uint32_t mask, int32_t class_id) {
  return class_id >= 0 && class_id < 32 && ((mask >> class_id) & 1u) != 0;
}

constexpr bool IsPerson(int32_t class_id) {
  return class_id == kClassPerson;
}
constexpr bool IsVehicle(int32_t class_id) {
  return ClassInMask(kVehicleClassMask, class_id);
}

// The name of a known class id ("person", "vehicle", "other", "vehicle2"); nullptr for others.
inline const char* ClassName(int32_t class_id) {
  static const char* const kNames[kClassIdCount] = {"person", "vehicle", "other", "vehicle2"};
  return IsKnownClass(class_id) ? kNames[ClassIndex(class_id)] : nullptr;
}

// The class id of a name as ClassName spells it; kClassNone for any other name.
inline int32_t ClassIdOfName(const char* name) {
  for (int32_t id : kClassIds) {
    if (std::strcmp(name, ClassName(id)) == 0) return id;
  }
  return kClassNone;
}

}  // namespace dva
}  // namespace mirvane

#endif  // MIRVANE_COMMON_OBJECT_CLASS_H
