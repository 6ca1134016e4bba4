// Reading the product table from config.xml (pugixml, which this platform builds for 8-bit
// text: the texts are converted to wide text here).
#pragma once

#include <cstddef>
#include <vector>

#include "zqCoreAudio.h"

// Appends one entry per child node of the document's top-level <config> element, in document
// order. False, with the table untouched, when the document cannot be loaded (missing,
// unreadable or not well-formed); true otherwise, even without a <config> element.
bool ReadProductTable(const wchar_t* pszPath, std::vector<_ZQ_CONFIG>& table);
// The same from a document in memory (any encoding pugixml detects).
bool ParseProductTable(const void* pData, size_t nSize, std::vector<_ZQ_CONFIG>& table);
