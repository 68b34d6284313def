xpacl_fuzz(grammar_fuzz agent sim)
