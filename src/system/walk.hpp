// The one file-tree walk: every sweep over a directory tree goes through it.
#pragma once

#include <sys/stat.h>

#include <functional>

#include "base/status.hpp"

// What a step answers the walk.
enum class WalkStep { go_on, stop };

// Walks root like ftw with at most 10 descriptors open, following symbolic links (a link to a file
// is reported as FTW_F under its own path, a link to a directory is walked into, a link that leads
// nowhere is FTW_SLN), and calls step for every entry, a directory before its contents. ST_OK when
// the whole tree was walked, ST_FAILURE when a step stopped it or the walk itself failed. An
// exception from step ends the walk and is rethrown.
[[nodiscard]] ExitStatus walk_tree(
    const char* root,
    const std::function<WalkStep(const char* path, const struct stat* st, int type)>& step);
