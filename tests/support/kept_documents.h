#pragma once

#include <string>

namespace test {

// Keeps a copy of a document the library wrote, for the schema check that ctest
// runs after the test executables: one file per document in the folder that the
// environment variable ORASNAP_TEST_DOCS names. Without the variable, and for a
// text that is no document (an error text, a path), nothing is kept.
void keep_document(const std::string& utf8Text);
void keep_document(const std::wstring& text);

// The bytes of a document file the library wrote (OracleMeta.xml, a log
// description), kept as above.
std::string read_document_file(const std::wstring& path);

} // namespace test
