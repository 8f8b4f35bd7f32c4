# SPDX-License-Identifier: MIT
# Writes the build stamp's source; SOURCE_DATE_EPOCH, when set, is the time of the build.
string(TIMESTAMP now "%Y/%m/%d-%H:%M")
file(WRITE ${OUTPUT} "extern const char kBuildStamp[];\nconst char kBuildStamp[] = \"${now}\";\n")
