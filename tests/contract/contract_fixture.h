// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The fixture of every contract test: a fresh world and short ways to its files.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/contract/contract_world.h"

namespace ombrel::contract {

class ContractTest : public ::testing::Test {
protected:
    /// The path of `name` in the world's folder.
    [[nodiscard]] std::string at(const std::string& name) const { return world->folder() + "/" + name; }
    /// Makes a file of that name in the world's folder and returns its path.
    std::string file(const std::string& name, const std::string& bytes) {
        const std::string path = at(name);
        world->writeFile(path, bytes);
        return path;
    }
    [[nodiscard]] std::string bytesOf(const std::string& path) const {
        return world->readFile(path).value_or("<no such file>");
    }

    std::unique_ptr<ContractWorld> world = makeContractWorld();
};

}  // namespace ombrel::contract
