// Makes from the catalogue what others read: the tools' table, the protocol's page (PAGE and the tables after it), the
// Wireshark dissector (SCRIPT with the table in it).

#include <glib.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "protocol/catalogue/Document.h"
#include "protocol/catalogue/generator/Writers.h"

namespace {

using namespace protocol::catalogue;

std::string readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return text;
}

std::string hashOf(const std::string& text)
{
    gchar* const sum =
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(text.data()), text.size());
    std::string hash = sum;
    g_free(sum);
    return hash;
}

std::string generate(const std::string& what, const Document& document, const std::string& text, const char* other)
{
    if (what == "cpp" && other == nullptr) {
        return generator::writeCpp(document.groups(), hashOf(text));
    }
    if (what == "markdown" && other != nullptr) {
        return readFile(other) + generator::writeMarkdown(document.groups());
    }
    if (what == "lua" && other != nullptr) {
        return generator::writeLua(document.groups(), readFile(other));
    }
    throw std::invalid_argument(
        "usage: catalogue-generator cpp CATALOGUE | markdown CATALOGUE PAGE | lua CATALOGUE SCRIPT");
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        if (argc < 3) {
            generate("", Document(""), "", nullptr);
        }
        const std::string text = readFile(argv[2]);
        const Document document(text);
        for (const auto& problem : document.problems()) {
            std::cerr << protocol::toml_file::format(argv[2], problem) << '\n';
        }
        if (!document.problems().empty()) {
            return 2;
        }
        std::cout << generate(argv[1], document, text, argc > 3 ? argv[3] : nullptr) << std::flush;
        return std::cout ? 0 : 1;
    } catch (const std::invalid_argument& error) {
        std::cerr << "catalogue-generator: " << error.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "catalogue-generator: " << error.what() << '\n';
        return 1;
    }
}
