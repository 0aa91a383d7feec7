// Disconnected, client-side record sets: typed fields, one current record, search and filter, and
// files in ADTG form.
//
// A record set is closed when made. Fields are appended while it is closed; Open() then makes it an
// empty, updatable set, OpenFile() loads one. Errors carry record-set numbers (errors.h): 3704 on a
// closed set, 3705 where it must be closed, 3021 without a current record, 3265 for an unknown
// field, 3421 for a value of the wrong type, kMultipleStep for a text that is longer than its
// field's defined size (counted in UTF-16 units) or a number outside its field's range, 3001 for a
// criterion that cannot be understood.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/result.h"
#include "platform/variant.h"

namespace trevix {

enum class FieldType : std::uint16_t {
    kOther = 0,     // only in files: a type that is kept and saved again; read as a Blob, never set
    kSmallInt = 2,  // std::int16_t
    kInteger = 3,   // std::int32_t
    kDouble = 5,    // double
    kDate = 7,      // Date
    kBstr = 8,      // std::string, limited by the defined size (0: unlimited)
    kBoolean = 11,  // bool
};

// Attributes of a field. A field without kFieldMayBeNull or kFieldIsNullable never holds Empty; its
// value in a new record is 0, the empty text, the zero date.
inline constexpr int kFieldUnspecified = -1;
inline constexpr int kFieldIsNullable = 0x20;
inline constexpr int kFieldMayBeNull = 0x40;
inline constexpr int kFieldKeyColumn = 0x8000;

inline constexpr int kStateClosed = 0;
inline constexpr int kStateOpen = 1;

inline constexpr int kPersistAdtg = 0;

class RecordSet {
 public:
    virtual ~RecordSet() = default;

    // Adds a field; `defined_size` is in UTF-16 units and means nothing for fixed types. The first
    // Append after Close or OpenFile starts a new list of fields. 3001 for a name that is taken.
    virtual Status Append(const std::string& name, FieldType type, int defined_size,
                          int attributes) = 0;

    // An empty set of the fields appended, which stay when it is closed.
    virtual Status Open() = 0;

    // Replaces all fields by those of the file. Defined sizes are not in the file: fields that were
    // appended before keep theirs, matched by name. kNotFound / kIo for the file (3002, 3003),
    // kMalformed (3003, with the offset) for a damaged one; the set is then left closed.
    virtual Status OpenFile(const std::string& path) = 0;

    // As OpenFile, from bytes that need not lie in a file of their own; they are read once, in
    // order. What reading them fails with is passed on.
    virtual Status OpenBlob(const Blob& content) = 0;
    virtual Status Close() = 0;
    virtual int State() const = 0;

    virtual int FieldCount() const = 0;
    virtual std::string FieldName(int index) const = 0;
    virtual FieldType FieldTypeAt(int index) const = 0;

    // Records that the filter shows.
    virtual std::int64_t RecordCount() const = 0;

    // Moving in an empty set, and on from Eof, is error 3021. Move calls see only what the filter
    // shows. Moving, searching, filtering, saving and AddNew first do Update() when something was
    // set or added, and stop when that fails.
    virtual Status MoveFirst() = 0;
    virtual Status MoveNext() = 0;
    virtual Status MoveLast() = 0;
    virtual bool Eof() const = 0;

    // Forward from the current record to the first that meets the criterion; past the last record
    // (Eof) when none does. A criterion is FIELD OPERATOR VALUE with one of = <> < > <= >=; the
    // value stands plain, in single quotes ('' is one quote) or, a date, in # #. A value for a text
    // field is text even when it looks like a number. Text compares without regard to case.
    // Equality on a whole field is answered from an index, in constant time.
    virtual Status Find(const std::string& criterion) = 0;

    // Shows only the records that meet the criterion (several may be joined by AND), and moves to
    // the first of them. An empty criterion shows all.
    virtual Status SetFilter(const std::string& criterion) = 0;

    // A new record with default values becomes current; it is part of the set after Update().
    virtual Status AddNew() = 0;

    // Keeps what was set since AddNew or since the record became current. kMultipleStep when a
    // value was refused by Set(): the record is then dropped (new) or left as it was.
    virtual Status Update() = 0;

    // Forgets what was set since AddNew or since the record became current.
    virtual Status CancelUpdate() = 0;

    // Deletes the current record; the one after it becomes current with the next MoveNext.
    virtual Status Delete() = 0;

    // Of the current record. Null comes back as Empty.
    virtual Result<Variant> Get(const std::string& field) const = 0;
    virtual Status Set(const std::string& field, const Variant& value) = 0;

    // The same cells by position and without a copy, for who looks at a million records: the text
    // of a kBstr field, the number of any other (a date's days, a flag as 0 or -1). Empty, or
    // nothing, for Null, for a field that is not of that kind, and without a current record. A text
    // stays valid until the set is changed or closed.
    virtual std::string_view TextAt(int index) const = 0;
    virtual std::optional<double> NumberAt(int index) const = 0;

    // Writes all records that the filter shows; `format` is kPersistAdtg. 58 when the file exists,
    // 3004 and the run-time errors of writing. A failed call leaves no file. Afterwards the first
    // record is current.
    virtual Status Save(const std::string& path, int format) = 0;
};

class RecordSetFactory {
 public:
    virtual ~RecordSetFactory() = default;
    virtual Result<std::unique_ptr<RecordSet>> CreateRecordSet() = 0;
};

}  // namespace trevix
