// The one file-tree walk: every sweep over a directory tree goes through it.
#pragma once

#include <sys/stat.h>

#include <functional>

// Walks root like ftw with at most 10 descriptors open, following symbolic links, and calls step
// for every entry with the ftw type (FTW_F, FTW_D, FTW_DNR, FTW_NS, FTW_SL ...). Returns 0 when
// the whole tree was walked, nonzero when a step returned nonzero or the walk itself failed.
[[nodiscard]] int walk_tree(const char* root,
                            const std::function<int(const char* path, const struct stat* st,
                                                    int type)>& step);
