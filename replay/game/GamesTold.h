#pragma once

// The two ways to a game, of which gamesOf() makes one list.

#include <optional>
#include <vector>

#include "replay/game/Make.h"

namespace replay {

// What the scheduling tells; nothing if it does not.
std::optional<Game> measuredGame(const GameEvidence& evidence);

// What must have been work if the game is of that make, which is not kStages.
Game gameUnder(const GameEvidence& evidence, const Make& make);

// The best of each make that can be told from the counters, the most likely first.
std::vector<Game> guessedGames(const GameEvidence& evidence);

}  // namespace replay
