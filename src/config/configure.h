#pragma once

// The configure action. Returns whether the machine is secured, without which nothing is started or
// disabled afterwards.
bool Configure();
