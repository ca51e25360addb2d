# Texts of messages as Doxygen has to be given them, so that it shows them as they are.
/@code/,/@endcode/b
s/%\([a-z]\)/%%\1/g
s/\(`[^`]*[^` ]\)  \([^` ][^`]*`\)/\1  \2/g
s/ `\([ ,.;)]\)/ `\1/g
