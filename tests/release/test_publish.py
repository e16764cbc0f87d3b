print("to come")
