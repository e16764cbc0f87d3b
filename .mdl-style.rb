# SPDX-License-Identifier: MIT
# The rules of mdl that the documents follow: all of them, with these settings.
all
# Code and tables cannot be wrapped.
rule "MD013", :line_length => 120, :ignore_code_blocks => true, :tables => false
# "Usage" may stand under each of several commands.
rule "MD024", :allow_different_nesting => true
# Commands to copy are indented.
rule "MD046", :style => :indented
