#pragma once

/// Reader of ACLs in OpenConfig's JSON: whole configurations, one acl-set, or a bare list of them. The
/// format is described in docs/formats.md.

#include "input/RuleReading.h"

namespace NaxelTool {

/// What an OpenConfig file is told by: one of these stands in it.
bool looksLikeOpenConfig(std::string_view content);

/// Adds an ACL for each acl-set, two for one with entries of both families. Throws InputError for a text
/// that is no such file as a whole.
void readOpenConfig(RuleReading& reading);

}  // namespace NaxelTool
