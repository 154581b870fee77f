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
    /// Reads the text of a catalogue file. Never throws on account of the text: whatever it is, problems() tells.
    explicit Document(std::string_view text);
    ~Document();
    Document(Document&&) noexcept;
    Document& operator=(Document&&) noexcept;

    /// In the order of the file. Only worth something when there are no problems. Lives as long as the document.
    Groups groups() const;

    /// What is wrong with the file, by place; empty for a sound catalogue.
    const toml_file::Problems& problems() const;

private:
    struct Storage;
    std::unique_ptr<Storage> storage_;
};

}  // namespace protocol::catalogue
