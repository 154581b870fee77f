#pragma once

#include <memory>
#include <string_view>

#include "protocol/catalogue/Model.h"
#include "protocol/toml/Problem.h"

namespace protocol::catalogue {

/// A catalogue read from TOML, with everything that its groups point to.
class Document
{
public:
    /// Reads the text of a catalogue file. Does not throw because of the text: problems() has its errors.
    explicit Document(std::string_view text);
    ~Document();
    Document(Document&&) noexcept;
    Document& operator=(Document&&) noexcept;

    /// In the order of the file. Valid only without problems. Lives as long as the document.
    Groups groups() const;

    /// The file's errors, by place; empty for a valid catalogue.
    const toml_file::Problems& problems() const;

private:
    struct Storage;
    std::unique_ptr<Storage> storage_;
};

}  // namespace protocol::catalogue
