#pragma once

#include <pugixml.hpp>
#include <string>

#include "base/Result.h"

/// XML documents from strangers.
namespace zelor::agent {

/// The most bytes of a document.
constexpr std::size_t kXmlBytesLimit = std::size_t{64} << 20U;

/// Which document types a document may have. Entities are never declared or expanded.
enum class DocumentType {
    none,     ///< it has none
    external  ///< it may name one elsewhere, which is never fetched, but declares nothing itself
};

/// Parses a document with its white space. Refused: malformed XML, other encodings than UTF-8, a document
/// type that is not allowed, zero bytes, and more than 64 MiB, 4,000,000 tags or a depth of 128 elements. The
/// failure says what is wrong with "it".
base::Result<pugi::xml_document> parseXml(const std::string& xml, DocumentType types = DocumentType::none);

/// An element's name without its prefix.
std::string localName(const pugi::xml_node& node);
/// The prefix of an element's name with its colon, or "".
std::string prefixOf(const pugi::xml_node& node);
/// The namespace of an element; "" for none.
std::string namespaceOf(const pugi::xml_node& node);
/// All text below a node.
std::string textOf(const pugi::xml_node& node);

}  // namespace zelor::agent
