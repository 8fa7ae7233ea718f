// Requests of this box to the balancer before the cluster.
#pragma once

#include <string>
#include <vector>

namespace webapi {

// How many boxes the balancer spreads streams over (MIREVO_CLUSTER_BOXES); 1 if this one knows no
// balancer.
int CountBoxes();

// Asks the balancer (MIREVO_CLUSTER_URL) for these addresses, which begin with "/", in a process of
// its own. Returns at once; nobody learns the answers.
void AskBalancer(const std::vector<std::string>& addresses);

}  // namespace webapi
