// Has no code of its own: its target makes the precompiled headers of all tests.
