// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The step that every change of a customized rule ends with.
#pragma once

/// Stops and starts the job that serves the rules, whether or not any rule is on. Waits until the job is up.
/// @return 0; -1 when it does not stop (it is not started then) or not start (both logged)
int CustomizedRuleServiceRestart();
