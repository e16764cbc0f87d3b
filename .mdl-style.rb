# SPDX-License-Identifier: MIT
# The rules of mdl that the documents follow: all of them, with these settings.
all
# Tables cannot be wrapped, and mdl takes some of them for text.
exclude_rule "MD013"
# "Usage" may stand under each of several commands.
rule "MD024", :allow_different_nesting => true
# The number says which step it is.
rule "MD029", :style => :ordered
# Log lines are quoted with the blanks that they end with.
exclude_rule "MD038"
# Drawings and command lines are in no language.
exclude_rule "MD040"
# Templates begin with a block for the host that shows them.
exclude_rule "MD041"
# Commands to copy are indented; sources and drawings are fenced.
exclude_rule "MD046"
