# Makes the links of the guides fit for Doxygen: headers become references, and of what is not part of the HTML the text
# is left.
s#\]\((\.\./)+[a-z]+/src/(HttpResponseStatusCodesUtils\.h)\)#](@ref \2)#g
s#\]\((\.\./)+[a-z]+/src/NetworkConstants\.h\)#](@ref network)#g
s#\]\((\.\./)+[a-z]+/src/Settings\.h\)#](@ref as)#g
s#\]\((\.\./)+[a-z]+/src/([A-Za-z]+)\.h\)#](@ref orv::\2)#g
s#\[([^]]*)\]\(\.\./\.\./[^)]*\)#\1#g
s#\[([^]]*)\]\([A-Za-z0-9_/.-]*\.json\)#\1#g
s#\[([^]]*)\]\((\.\./)?snippets/[^)]*\)#\1#g
s#\[([^]]*)\]\(\.\./((README|CONTRIBUTING|CHANGELOG)\.md|(examples|benchmarks|tests|tools)\b[^)]*)\)#\1#g
