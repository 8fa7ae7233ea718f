// The word that lets somebody on the network create the first account.
//
// The service makes it at a start without accounts when other machines can reach it. It stands in
// "/var/packages/Mirevo/etc/first_word", which only root and the service's user can read, and it
// ends with the first account.
#pragma once

#include <string>

namespace accounts {

inline constexpr char kFirstWordFile[] = "/var/packages/Mirevo/etc/first_word";

// Makes a new word and returns it; "" if it cannot be stored.
std::string MakeFirstWord();

// Is there a word, and is it this one?
bool IsFirstWord(const std::string& word);

// Is there a word?
bool HasFirstWord();

void RemoveFirstWord();

}  // namespace accounts
