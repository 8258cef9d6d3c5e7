// Runs a plan on one phone.
#pragma once

#include <functional>
#include <string>

#include "station/link/session.h"
#include "station/plan/operator.h"
#include "station/plan/plan.h"
#include "station/plan/result.h"

namespace station {

// Told before each step: its number from 0, and its name.
using StepStarted = std::function<void(std::size_t, const std::string&)>;

// Runs all steps and judges them; throws nothing that a step brings about.
PlanResult RunPlan(const Plan& plan, Session& session, Operator& person, const StepStarted& started);

// The result of a plan that could not begin because the port cannot be used.
PlanResult UnstartedPlan(const Plan& plan, const std::string& port, const std::string& failure);

}  // namespace station
