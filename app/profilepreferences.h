#pragma once

// Display preferences of one profile that the user database has no column for: how the food tick
// is judged, the daily minutes of exercise that earn its tick, and how snacks are grouped. Kept
// in the application settings under "profiles/<id>/".

struct ProfilePreferences
{
    int budgetMode = 1;      // 1 within 100 calories either side of the budget, 0 at or under it
    int exerciseTarget = 30; // minutes a day
    int snackMode = 1;       // 0 all snacks together, 1 between meals, 2 below meals

    static ProfilePreferences load(int userId);
    void save(int userId) const;
};
