#include "columns/ArrowExport.h"

#include <cstddef>

namespace tivra_python {

namespace {

/// What an exported structure needs until it is released.
template<class Structure>
struct Parts {
    std::vector<Structure> children;
    std::vector<Structure*> childPointers;
    std::unique_ptr<Structure> dictionary;

    ~Parts() {
        for (Structure& child : children)
            releaseOne(&child);
        releaseOne(dictionary.get());
    }
    /// What was moved away by whoever imported it has no `release` any more.
    static void releaseOne(Structure* structure) {
        if (structure != nullptr && structure->release != nullptr)
            structure->release(structure);
    }
    void link(Structure* out) {
        for (Structure& child : children)
            childPointers.push_back(&child);
        out->n_children = static_cast<std::int64_t>(children.size());
        out->children = childPointers.empty() ? nullptr : childPointers.data();
        out->dictionary = dictionary.get();
    }
};

struct ArrayParts : Parts<ArrowArray> {
    std::shared_ptr<const void> owner;
    std::vector<const void*> buffers;
};

struct SchemaParts : Parts<ArrowSchema> {
    std::string name;
};

template<class Structure, class PartsOf>
void release(Structure* structure) {
    delete static_cast<PartsOf*>(structure->private_data);
    structure->private_data = nullptr;
    structure->release = nullptr;
}

/// Hands the parts over to the structure, which releases them.
void complete(std::unique_ptr<ArrayParts> parts, std::int64_t length, std::int64_t nulls, ArrowArray* out) {
    *out = ArrowArray{};
    parts->link(out);
    out->length = length;
    out->null_count = nulls;
    out->n_buffers = static_cast<std::int64_t>(parts->buffers.size());
    out->buffers = parts->buffers.data();
    out->release = release<ArrowArray, ArrayParts>;
    out->private_data = parts.release();
}

void complete(std::unique_ptr<SchemaParts> parts, const char* format, bool isNullable, ArrowSchema* out) {
    *out = ArrowSchema{};
    parts->link(out);
    out->format = format;
    out->name = parts->name.c_str();
    out->flags = isNullable ? ARROW_FLAG_NULLABLE : 0;
    out->release = release<ArrowSchema, SchemaParts>;
    out->private_data = parts.release();
}

std::unique_ptr<ArrayParts> arrayParts(const std::shared_ptr<const void>& owner,
                                       std::vector<const void*> buffers) {
    auto parts = std::make_unique<ArrayParts>();
    parts->owner = owner;
    parts->buffers = std::move(buffers);
    return parts;
}

void exportColumn(const ArrowColumn& column, std::int64_t rows, const std::shared_ptr<const void>& owner,
                  ArrowArray* out) {
    std::unique_ptr<ArrayParts> parts = arrayParts(owner, column.buffers);
    if (column.dictionary != nullptr) {
        const TextDictionary& dictionary = *column.dictionary;
        parts->dictionary = std::make_unique<ArrowArray>();
        complete(arrayParts(owner, {nullptr, dictionary.offsets().data(), dictionary.text().data()}),
                 static_cast<std::int64_t>(dictionary.size()), 0, parts->dictionary.get());
    }
    complete(std::move(parts), rows, column.nulls, out);
}

void exportColumn(const ArrowColumn& column, ArrowSchema* out) {
    auto parts = std::make_unique<SchemaParts>();
    parts->name = column.name;
    if (column.dictionary != nullptr) {
        parts->dictionary = std::make_unique<ArrowSchema>();
        complete(std::make_unique<SchemaParts>(), "u", false, parts->dictionary.get());
    }
    complete(std::move(parts), column.format, column.isNullable, out);
}

} // namespace

void exportArray(const std::vector<ArrowColumn>& columns, std::int64_t rows,
                 const std::shared_ptr<const void>& owner, ArrowArray* out) {
    std::unique_ptr<ArrayParts> parts = arrayParts(owner, {nullptr});
    parts->children.resize(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i)
        exportColumn(columns[i], rows, owner, &parts->children[i]);
    complete(std::move(parts), rows, 0, out);
}

void exportSchema(const std::vector<ArrowColumn>& columns, ArrowSchema* out) {
    auto parts = std::make_unique<SchemaParts>();
    parts->children.resize(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i)
        exportColumn(columns[i], &parts->children[i]);
    complete(std::move(parts), "+s", false, out);
}

} // namespace tivra_python
