// SPDX-License-Identifier: Apache-2.0
// What nq-gev prints with --json against the schema that scripts rely on.
#pragma once

#include "support/temporary_folder.h"
#include "support/tool.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace nq::test
{

/// Fails unless `output` is one JSON text as the schema has it for the verb. python3-jsonschema does the work.
inline void ExpectFitsSchema(const std::string& verb, const std::string& output)
{
    constexpr const char* kCheck = "import json, sys, jsonschema\n"
                                   "schema = json.load(open(sys.argv[1]))\n"
                                   "schema['$ref'] = '#/$defs/' + sys.argv[2]\n"
                                   "jsonschema.Draft202012Validator.check_schema(schema)\n"
                                   "jsonschema.Draft202012Validator(schema).validate(json.load(open(sys.argv[3])))\n";
    const TemporaryFolder folder;
    const std::string path = folder.Path() + "/output.json";
    std::ofstream(path) << output;
    const Outcome check =
        RunProgram({"/usr/bin/python3", "-c", kCheck, NQ_SOURCE_DIR "/docs/nq-gev.schema.json", verb, path});
    EXPECT_EQ(check.exitCode, 0) << verb << ": " << check.output << output;
}

} // namespace nq::test
