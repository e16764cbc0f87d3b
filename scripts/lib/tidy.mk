# SPDX-License-Identifier: MIT
# Runs clang-tidy on each unit that has changed since it was last found clean, or that includes a file that has. Called
# by scripts/lint with DATABASE, the folder of the compile commands and of units.mk, which has a target for each unit.

.DEFAULT_GOAL := all
include $(DATABASE)/units.mk

all: $(units)

# clang-tidy counts suppressed warnings on its standard error. It also reports a configuration there that it cannot read,
# without failing.
counts := ^([0-9]+ (warning|error)s?( and [0-9]+ errors?)? generated\.|Suppressed .*)$$

%.clean: .clang-tidy $(DATABASE)/compile_commands.json $(shell command -v clang-tidy)
	mkdir -p $(@D)
	clang-tidy --quiet --warnings-as-errors='*' -p $(DATABASE) $(firstword $(filter %.cpp,$^)) 2>$@.messages || \
	    { grep -vE '$(counts)' $@.messages >&2; exit 1; }
	! grep -vE '$(counts)' $@.messages >&2
	touch $@
